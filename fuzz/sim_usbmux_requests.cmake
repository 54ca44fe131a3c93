# The simulator's usbmuxd request parsing (binary and property-list
# protocols) and its pair record store, as a broken host could drive them.
set(sim ${PROJECT_SOURCE_DIR}/sim)
zeb_fuzz_target(fuzz_sim_usbmux_requests
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/sim_usbmux_requests_fuzz.cpp
          ${sim}/core/usbmux_request.cpp
          ${sim}/core/usbmux_wire.cpp
          ${sim}/core/pair_records.cpp
          ${sim}/core/profile.cpp
          ${sim}/core/plist_util.cpp
          ${sim}/core/socket_io.cpp
  INCLUDES ${sim}
  LIBS -lplist-2.0 -lcrypto)
