# Makes Debian packages, one for each part of the install tree. In the build folder, cpack -G DEB writes them to
# packages/. packaging/debian/finish.cmake removes symbols from the programs and libraries, and adds a change log and
# a licence file for Debian.
#
# By default only the build for Qt 5 makes packages of the programs. The KDE desktop of Debian 12 uses Qt 5, so
# only programs with Qt 5 get its colours and file dialogs.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME jwdevice)
set(CPACK_PACKAGE_VENDOR JwDevice)
set(CPACK_PACKAGE_CONTACT "JwDevice maintainers <maintainers@jwdevice.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # empty, because each package has its own summary
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL JwDevice_runtime JwDevice_watch JwDevice_development)
if(JWDEVICE_INSTALL_PROGRAMS)
    list(APPEND CPACK_COMPONENTS_ALL JwDevice_tools JwDevice_monitor)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)

# Debian separates a version from a name that ends with a digit.
if(JWDEVICE_QT EQUAL 5)
    set(jwdevice_package_suffix)
else()
    set(jwdevice_package_suffix -qt6-)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE jwdevice)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_JWDEVICE_DEVELOPMENT_DEPENDS JwDevice_runtime JwDevice_watch)
set(CPACK_COMPONENT_JWDEVICE_WATCH_DEPENDS JwDevice_runtime)
set(CPACK_COMPONENT_JWDEVICE_TOOLS_DEPENDS JwDevice_runtime JwDevice_watch)
set(CPACK_COMPONENT_JWDEVICE_MONITOR_DEPENDS JwDevice_runtime JwDevice_watch)

set(about "JwDevice asks each USB serial port which board is there, with short NMEA 0183\n\
sentences, and hands a Qt ${JWDEVICE_QT} application one ready connection to each board.")

set(CPACK_DEBIAN_JWDEVICE_RUNTIME_PACKAGE_NAME libjwdevice${jwdevice_package_suffix}${jwdevice_soversion})
set(CPACK_DEBIAN_JWDEVICE_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_JWDEVICE_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_JWDEVICE_RUNTIME_DESCRIPTION "find embedded boards on USB serial ports (libraries)\n\
${about}\n.\nThis package has the shared libraries, libJwDevice${jwdevice_file_suffix} and\n\
libLogger${jwdevice_file_suffix}.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_JWDEVICE_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_JWDEVICE_WATCH_PACKAGE_NAME libjwdevice-watch${jwdevice_package_suffix}${jwdevice_soversion})
set(CPACK_DEBIAN_JWDEVICE_WATCH_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_JWDEVICE_WATCH_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_JWDEVICE_WATCH_DESCRIPTION "find embedded boards that come and go (library)\n\
${about}\n.\nThis package has the shared library libJwDeviceWatch${jwdevice_file_suffix}, which also\n\
finds boards that are plugged in later, and reports boards that are lost and\n\
back.")
set(CPACK_DEBIAN_JWDEVICE_WATCH_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_JWDEVICE_DEVELOPMENT_PACKAGE_NAME libjwdevice${jwdevice_module_suffix}-dev)
set(CPACK_DEBIAN_JWDEVICE_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_JWDEVICE_DEVELOPMENT_PACKAGE_DEPENDS "${jwdevice_qt_packages}, libspdlog-dev")
set(CPACK_DEBIAN_JWDEVICE_DEVELOPMENT_PACKAGE_RECOMMENDS "libumockdev-dev, umockdev")
set(CPACK_DEBIAN_JWDEVICE_DEVELOPMENT_DESCRIPTION "find embedded boards on USB serial ports (development)\n\
${about}\n.\nThis package has the files to build a program: headers, CMake and pkg-config\n\
files, and a static library of simulated boards for the program's tests. That\n\
library needs the recommended packages.")

set(CPACK_DEBIAN_JWDEVICE_TOOLS_PACKAGE_NAME jwdevice-tools)
set(CPACK_DEBIAN_JWDEVICE_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_JWDEVICE_TOOLS_PACKAGE_SHLIBDEPS ON)
get_target_property(library_dir JwDevice BINARY_DIR)
get_target_property(logger_dir JwDeviceLogger BINARY_DIR)
get_target_property(watch_dir JwDeviceWatch BINARY_DIR)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${library_dir} ${logger_dir} ${watch_dir})
# jwsim loads libumockdev-preload at run time, so the tools that find dependencies do not find this one.
set(CPACK_DEBIAN_JWDEVICE_TOOLS_PACKAGE_DEPENDS umockdev)
set(CPACK_DEBIAN_JWDEVICE_TOOLS_DESCRIPTION "find embedded boards on USB serial ports (programs)\n\
${about}\n.\nThis package has jwprobe, which finds boards from the command line and says\n\
why a board was not found, and jwsim, which runs any program with simulated\n\
boards.")

set(CPACK_DEBIAN_JWDEVICE_MONITOR_PACKAGE_NAME jwdevice-monitor)
set(CPACK_DEBIAN_JWDEVICE_MONITOR_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_JWDEVICE_MONITOR_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_JWDEVICE_MONITOR_PACKAGE_RECOMMENDS jwdevice-tools)
set(CPACK_DEBIAN_JWDEVICE_MONITOR_DESCRIPTION "find embedded boards on USB serial ports (desktop program)\n\
${about}\n.\nThis package has jwmonitor, a window that shows the boards and their traffic.")

if(JWDEVICE_INSTALL_PROGRAMS AND JWDEVICE_BUILD_BRIDGE)
    list(APPEND CPACK_COMPONENTS_ALL JwDevice_bridge)
    set(CPACK_COMPONENT_JWDEVICE_BRIDGE_DEPENDS JwDevice_runtime JwDevice_watch)
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_PACKAGE_NAME jwdevice-bridge)
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_PACKAGE_SECTION net)
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_PACKAGE_SUGGESTS "mosquitto, mosquitto-clients")
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_DESCRIPTION "find embedded boards on USB serial ports (bridge to MQTT)\n\
${about}\n.\nThis package has jwbridge, a service that connects the boards of a machine\n\
with an MQTT 5 broker. It does not start before it is configured.")
    set(CPACK_DEBIAN_JWDEVICE_BRIDGE_PACKAGE_CONTROL_EXTRA
        ${PROJECT_SOURCE_DIR}/packaging/debian/bridge/postinst ${PROJECT_SOURCE_DIR}/packaging/debian/bridge/prerm
        ${PROJECT_SOURCE_DIR}/packaging/debian/bridge/postrm)
endif()

include(CPack)
