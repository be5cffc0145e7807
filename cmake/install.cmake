include(CMakePackageConfigHelpers)

set(trkapi_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/trkapi)
set(trkapi_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS trkapi EXPORT trkapiTargets)
install(FILES ${PROJECT_SOURCE_DIR}/include/trkapi/trkapi.h ${PROJECT_SOURCE_DIR}/include/trkapi/trkapi.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/trkapi)
install(EXPORT trkapiTargets NAMESPACE trkapi:: DESTINATION ${trkapi_package_dir})

# The recording writer is a component of its own, here and in find_package.
if(TRKAPI_BUILD_WRITER OR TRKAPI_BUILD_TOOLS OR TRKAPI_BUILD_EXAMPLES)
    install(TARGETS trkwriter EXPORT trkwriterTargets COMPONENT writer)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/writer/include/trkwriter
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT writer)
    install(EXPORT trkwriterTargets NAMESPACE trkapi:: DESTINATION ${trkapi_package_dir} COMPONENT writer)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/trkapiConfig.cmake.in
    ${PROJECT_BINARY_DIR}/trkapiConfig.cmake
    INSTALL_DESTINATION ${trkapi_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/trkapiConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/trkapiConfig.cmake ${PROJECT_BINARY_DIR}/trkapiConfigVersion.cmake
    DESTINATION ${trkapi_package_dir})

# Paths relative to the .pc file itself, so that the installed tree may be moved and `cmake --install --prefix`
# works. Absolute directories stay as they are.
set(trkapi_pc_prefix ${CMAKE_INSTALL_PREFIX})
set(trkapi_pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
set(trkapi_pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    file(RELATIVE_PATH trkapi_pc_up /${trkapi_pkgconfig_dir} /)
    string(REGEX REPLACE "/$" "" trkapi_pc_up "${trkapi_pc_up}")
    set(trkapi_pc_prefix "\${pcfiledir}/${trkapi_pc_up}")
    set(trkapi_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(trkapi_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/trkapi.pc.in ${PROJECT_BINARY_DIR}/trkapi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/trkapi.pc DESTINATION ${trkapi_pkgconfig_dir})

if(TARGET trk)
    file(RELATIVE_PATH trkapi_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(trk PROPERTIES INSTALL_RPATH "$ORIGIN/${trkapi_bin_to_lib}")
    install(TARGETS trk)
    install(FILES ${trkapi_manual_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    set(trkapi_completion_dir ${PROJECT_SOURCE_DIR}/tools/completion)
    install(FILES ${trkapi_completion_dir}/trk.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME trk)
    install(FILES ${trkapi_completion_dir}/_trk DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${trkapi_completion_dir}/trk.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
