# Where an installed Zebrelo puts its files, and the .deb that carries them.
# The worker looks for the provider (and the download module) beside itself and then in
# ../lib/zebrelo/, so the installed tree works from any prefix.
# Installing (and packing) takes what is built: it doesn't build everything
# (the test and fuzz programs too) first. Build with scripts/build.sh.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
foreach(program zebrelo zebrelo-ctl zebrelo-sim)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION bin)
  endif()
endforeach()
if(TARGET zebrelo-mobiledevice)
  install(TARGETS zebrelo-mobiledevice LIBRARY DESTINATION lib/zebrelo)
endif()
if(TARGET zebrelo-download)
  install(TARGETS zebrelo-download LIBRARY DESTINATION lib/zebrelo)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION share/doc/zebrelo)
install(FILES ${PROJECT_SOURCE_DIR}/sim/README.md DESTINATION share/doc/zebrelo RENAME README.simulator.md)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/sim/profiles/ DESTINATION share/zebrelo/profiles)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zebrelo)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Zebrelo developers <dev@zebrelo.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "headless iOS device manager: worker, reference parent and device simulator")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Dependencies are what dpkg-shlibdeps finds the binaries (and the provider,
# which pulls in libimobiledevice) linked against.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
