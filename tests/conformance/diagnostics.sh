# idevicediagnostics reads the battery entry of the device's I/O registry.
. "$(dirname "$0")/harness.sh"
need_tool idevicediagnostics
start_sim

run_tool idevicediagnostics ioregentry IOPMPowerSource
expect_ok "ioregentry"
expect_output "ioregentry" "<key>CycleCount</key>"
expect_output "ioregentry" "<integer>187</integer>"
expect_output "ioregentry" "<key>DesignCapacity</key>"
stop_sim
