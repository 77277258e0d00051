# Headers, libraries, the CMake package, the pkg-config file, and a target that takes them all away again.

include(CMakePackageConfigHelpers)

install(TARGETS nvxcore_shared nvxcore_static nvxcore_messagegen EXPORT nvxcoreTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/nvxcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "*.proto" PATTERN internal EXCLUDE PATTERN linux EXCLUDE)
install(DIRECTORY ${message_headers}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.pb.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nvxcore)
install(EXPORT nvxcoreTargets NAMESPACE nvxcore:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/nvxcoreConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/nvxcoreConfig.cmake INSTALL_DESTINATION ${package_dir}
                              PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nvxcoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/nvxcoreConfig.cmake ${PROJECT_BINARY_DIR}/nvxcoreConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/NvxcoreMessages.cmake
        DESTINATION ${package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/nvxcore.pc.in ${PROJECT_BINARY_DIR}/nvxcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nvxcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(NVXCORE_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
                                      -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
endif()
