# The install tree. Its parts are JwDevice_runtime (the shared libraries), JwDevice_watch (the shared library of
# watch/), JwDevice_development (headers, links, static libraries, CMake and pkg-config files), JwDevice_tools (programs
# with their manual pages and completions), JwDevice_monitor (the same for jwmonitor, which needs a desktop) and
# JwDevice_bridge (jwbridge, with its service).
include(CMakePackageConfigHelpers)

# On Debian, libraries go to a folder for the processor (lib/x86_64-linux-gnu on a PC), because Debian's tools search
# this folder. GNUInstallDirs chooses the folder only for the prefix /usr. Here it is chosen for every prefix, because
# cpack makes the Debian packages, which have the prefix /usr, from a build with any prefix.
if(PROJECT_IS_TOP_LEVEL AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version
   AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Where libraries go below the prefix")
endif()
include(GNUInstallDirs)

set(jwdevice_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/jwdevice${jwdevice_module_suffix})
set(jwdevice_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${jwdevice_package})
set(jwdevice_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# While the version is 0.x, a minor release may change the binary interface. So the SOVERSION is 0.x, not only 0.
set(jwdevice_soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

# jwdevice_install_library(<target> [COMPONENT <part>] [PRIVATE_HEADERS <file>...])
# Installs the target as the component <EXPORT_NAME>, with all its headers except the private ones. A shared library
# belongs to <part> of the install tree, by default JwDevice_runtime.
function(jwdevice_install_library target)
    cmake_parse_arguments(library "" "COMPONENT" "PRIVATE_HEADERS" ${ARGN})
    if(NOT library_COMPONENT)
        set(library_COMPONENT JwDevice_runtime)
    endif()
    if(NOT JWDEVICE_INSTALL)
        return()
    endif()
    get_target_property(name ${target} EXPORT_NAME)
    install(TARGETS ${target} EXPORT ${jwdevice_package}-${name}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${library_COMPONENT}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${library_COMPONENT}
                NAMELINK_COMPONENT JwDevice_development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT JwDevice_development
        INCLUDES DESTINATION ${jwdevice_include_dir})
    install(EXPORT ${jwdevice_package}-${name} NAMESPACE JwDevice:: FILE ${jwdevice_package}-${name}.cmake
        DESTINATION ${jwdevice_cmake_dir} COMPONENT JwDevice_development)

    get_target_property(headers ${target} SOURCES)
    list(FILTER headers INCLUDE REGEX "\\.h$")
    list(REMOVE_ITEM headers ${library_PRIVATE_HEADERS})
    foreach(header IN LISTS headers)
        cmake_path(ABSOLUTE_PATH header NORMALIZE)
        cmake_path(GET header PARENT_PATH folder)
        cmake_path(GET folder FILENAME folder)
        install(FILES ${header} DESTINATION ${jwdevice_include_dir}/${folder} COMPONENT JwDevice_development)
    endforeach()
endfunction()

# jwdevice_install_pkgconfig(<name> DESCRIPTION <text> LIBRARIES <flag>... [REQUIRES <module>...]
#                            [REQUIRES_PRIVATE <module>...] [STATIC_FLAGS <flag>...])
# Installs the pkg-config file <name>.pc, or <name>-qt6.pc in a build for Qt 6. A program that uses the library also
# links the modules REQUIRES. If the library is static, the program also links REQUIRES_PRIVATE, and is compiled with
# STATIC_FLAGS, which tell the headers that the library is static.
function(jwdevice_install_pkgconfig name)
    cmake_parse_arguments(module "" "DESCRIPTION" "LIBRARIES;REQUIRES;REQUIRES_PRIVATE;STATIC_FLAGS" ${ARGN})
    if(NOT JWDEVICE_INSTALL)
        return()
    endif()
    if(JWDEVICE_BUILD_SHARED)
        set(module_STATIC_FLAGS)
    else()
        list(APPEND module_REQUIRES ${module_REQUIRES_PRIVATE})
        set(module_REQUIRES_PRIVATE)
    endif()
    foreach(list IN ITEMS LIBRARIES REQUIRES REQUIRES_PRIVATE STATIC_FLAGS)
        list(JOIN module_${list} " " module_${list})
    endforeach()
    # A user may move an install tree, so the .pc file names folders relative to itself. But if a folder was given as an
    # absolute path, the tree cannot be moved, so the prefix is absolute too.
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
        set(prefix ${CMAKE_INSTALL_PREFIX})
    else()
        file(RELATIVE_PATH prefix /${jwdevice_pkgconfig_dir} /)
        set(prefix "\${pcfiledir}/${prefix}")
    endif()
    string(APPEND name ${jwdevice_module_suffix})
    set(libdir "\${prefix}")
    cmake_path(APPEND libdir ${CMAKE_INSTALL_LIBDIR})
    set(includedir "\${prefix}")
    cmake_path(APPEND includedir ${jwdevice_include_dir})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/module.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc
        DESTINATION ${jwdevice_pkgconfig_dir} COMPONENT JwDevice_development)
endfunction()

# jwdevice_install_program(<target> [<part>])
# Installs the program with its manual page and its bash completion, in <part> of the install tree, by default
# JwDevice_tools.
function(jwdevice_install_program target)
    if(NOT JWDEVICE_INSTALL_PROGRAMS)
        return()
    endif()
    set(part JwDevice_tools ${ARGN})
    list(GET part -1 part)
    # If a folder is an absolute path, nobody can move the install tree. So the search path is absolute too.
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
        set(libraries ${CMAKE_INSTALL_FULL_LIBDIR})
    else()
        file(RELATIVE_PATH libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
        string(PREPEND libraries "$ORIGIN/")
    endif()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${libraries}")
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${part})
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${target}.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${part})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/${target}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${part})
endfunction()

# Installs the files that find_package needs.
function(jwdevice_install_package)
    set(folder ${PROJECT_BINARY_DIR}/cmake)
    configure_package_config_file(
        ${PROJECT_SOURCE_DIR}/cmake/JwDeviceConfig.cmake.in ${folder}/${jwdevice_package}Config.cmake
        INSTALL_DESTINATION ${jwdevice_cmake_dir} NO_CHECK_REQUIRED_COMPONENTS_MACRO NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${folder}/${jwdevice_package}ConfigVersion.cmake COMPATIBILITY SameMinorVersion)
    install(FILES ${folder}/${jwdevice_package}Config.cmake ${folder}/${jwdevice_package}ConfigVersion.cmake
        DESTINATION ${jwdevice_cmake_dir} COMPONENT JwDevice_development)
endfunction()
