# cpack runs this file before it packs the packages. The files of each package are in a folder, here called a tree. This
# file changes the trees so that they follow Debian's rules.
file(GLOB trees ${CPACK_TEMPORARY_DIRECTORY}/*/usr)

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# -n: the compressed file contains no date, so the same input always gives the same file.
function(compress file)
    run(gzip -9 -n ${file})
endfunction()

find_program(STRIP strip REQUIRED)
foreach(tree IN LISTS trees)
    file(GLOB_RECURSE files ${tree}/bin/* ${tree}/lib/*)
    foreach(file IN LISTS files)
        if(IS_SYMLINK ${file})
            continue()
        elseif(file MATCHES "\\.a$")
            run(${STRIP} --strip-debug --enable-deterministic-archives -R .comment -R .note ${file})
        elseif(file MATCHES "/bin/|\\.so\\.")
            file(RPATH_REMOVE FILE ${file}) # the system finds the libraries without a search path in the file
            run(${STRIP} --strip-unneeded -R .comment -R .note ${file})
        endif()
        if(file MATCHES "\\.so\\.")
            file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
        endif()
    endforeach()

    file(GLOB_RECURSE pages ${tree}/share/man/*.[1-8])
    foreach(page IN LISTS pages)
        compress(${page})
    endforeach()

    # The folder above the tree has the name of the package's component. For each component, JwDevicePackages.cmake sets
    # the name of the package.
    cmake_path(GET tree PARENT_PATH component)
    cmake_path(GET component FILENAME component)
    string(TOUPPER ${component} component)
    set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    set(documents ${tree}/share/doc/${package})
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${documents})
    configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog ${documents}/changelog.Debian COPYONLY)
    compress(${documents}/changelog.Debian)
endforeach()
