# The simulator's lockdown request handling over a device on the built-in
# profile: values, pairing memory, sessions and service ports.
set(sim ${PROJECT_SOURCE_DIR}/sim)
zeb_fuzz_target(fuzz_sim_lockdown_requests
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/sim_lockdown_requests_fuzz.cpp
          ${sim}/core/lockdown_requests.cpp
          ${sim}/core/device.cpp
          ${sim}/core/device_values.cpp
          ${sim}/core/device_pairing.cpp
          ${sim}/core/device_keys.cpp
          ${sim}/core/backup_settings.cpp
          ${sim}/core/backup_keybag.cpp
          ${sim}/core/media_tree.cpp
          ${sim}/core/jpeg_writer.cpp
          ${sim}/core/plist_util.cpp
          ${sim}/services/afc_partition.cpp
          ${sim}/service.cpp
          ${CMAKE_BINARY_DIR}/sim/builtin_profile.cpp
  INCLUDES ${sim}
  LIBS -lplist-2.0 -lssl -lcrypto -lpthread)
