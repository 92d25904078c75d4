# What `cmake --install` puts where. Each part finds the others by relative paths, so a prefix may be moved as a whole.

include(CMakePackageConfigHelpers)
set(TAV_GENERATED ${PROJECT_BINARY_DIR}/install)
set(TAV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tav_adapt)
set(TAV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/tav_adapt)
file(RELATIVE_PATH TAV_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TAV_PREFIX ${TAV_PREFIX})

# tav_find_libraries_in(TARGET FOLDER): where the target looks for our libraries, a path from its own folder on. Where
# the build tree lies alike, it is linked so at once: CMake would leave room for a change, and with it an empty path,
# which means the working folder.
function(tav_find_libraries_in target folder)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN${folder};${CMAKE_INSTALL_RPATH}")
    if(folder MATCHES "^(|/../lib)$")
        set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
    endif()
endfunction()

# tav_install_library(NAME DESCRIPTION REQUIRES): tav_NAME, and its pkg-config file.
function(tav_install_library name description requires)
    install(TARGETS tav_${name} EXPORT tav_adapt LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${TAV_GENERATED}/tav_${name}.pc @ONLY)
    install(FILES ${TAV_GENERATED}/tav_${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

install(TARGETS tav_headers EXPORT tav_adapt)
tav_install_library(adapt "Configuration store, event detection, passwords and containers" "")
if(TAV_PLATFORM STREQUAL posix)
    tav_find_libraries_in(tav_adapt "")
    tav_find_libraries_in(tav_session "")
    tav_install_library(posix "Platform under tav_adapt for Linux" "")
    tav_install_library(session "Changes of one configuration store by several processes" "tav_adapt tav_posix")
    install(DIRECTORY include/ hosted/include/ DESTINATION ${TAV_INCLUDE_DIR} FILES_MATCHING PATTERN *.h)
else()
    install(FILES
        include/aru_detect.h
        include/tav_base.h
        include/tav_common.h
        include/tav_crypt.h
        include/tav_extcfg.h
        include/tav_extcfg_nodes.h
        include/tav_ftpci.h
        include/tav_queue.h
        include/tav_rbtree.h
        include/tav_vector.h
        include/tav_version.h
        DESTINATION ${TAV_INCLUDE_DIR})
    install(DIRECTORY include/platform DESTINATION ${TAV_INCLUDE_DIR})
endif()

# The hosted platform loads the bus from beside itself.
if(TARGET tav_fleet)
    install(TARGETS tav_fleet_bus LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    tav_find_libraries_in(tav_fleet "")
    tav_install_library(fleet "Configuration stores on many machines, over a NATS server" "tav_session")
endif()

install(EXPORT tav_adapt NAMESPACE tav:: FILE tav_adapt-targets.cmake DESTINATION ${TAV_CMAKE_DIR})
configure_package_config_file(cmake/tav_adapt-config.cmake.in ${TAV_GENERATED}/tav_adapt-config.cmake
    INSTALL_DESTINATION ${TAV_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${TAV_GENERATED}/tav_adapt-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${TAV_GENERATED}/tav_adapt-config.cmake
    ${TAV_GENERATED}/tav_adapt-config-version.cmake
    DESTINATION ${TAV_CMAKE_DIR})

install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(TARGET tavcfg)
    file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    tav_find_libraries_in(tavcfg /${libraries})
    install(TARGETS tavcfg DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES tools/completion/tavcfg DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES tools/completion/_tavcfg DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()

# The manual: NAME.SECTION.scd becomes a page of that section.
find_program(SCDOC scdoc)
if(SCDOC AND TAV_PLATFORM STREQUAL posix)
    file(GLOB manual CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.scd)
    foreach(source ${manual})
        cmake_path(GET source STEM LAST_ONLY name)
        string(REGEX MATCH "[0-9]$" section ${name})
        set(page ${TAV_GENERATED}/${name})
        add_custom_command(OUTPUT ${page} DEPENDS ${source} VERBATIM
            COMMAND sh -c [["$0" <"$1" >"$2"]] ${SCDOC} ${source} ${page})
        install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
        list(APPEND pages ${page})
    endforeach()
    add_custom_target(manual ALL DEPENDS ${pages})
endif()
