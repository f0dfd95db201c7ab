# What an installed tree holds. The store leaves the platform's operations undefined on purpose: a host links it together
# with CDS::CDSSupport, or with an implementation of its own written against the platform's headers.

include(CMakePackageConfigHelpers)

set(cds_installed_targets CDSStore CDSPlatform)
if(TARGET CDSSupport)
    list(APPEND cds_installed_targets CDSSupport)
endif()
install(
    TARGETS ${cds_installed_targets}
    EXPORT CDSStoreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/CDS/CDSStore/include/ ${PROJECT_BINARY_DIR}/CDS/CDSStore/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/CDSStore FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/CDSPlatform
        FILES_MATCHING PATTERN "*.h")
if(TARGET CDSSupport)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/support/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/CDSSupport
            FILES_MATCHING PATTERN "*.h")
endif()

# Before 1.0 a new minor version may break what stood before; the libraries' names say the same.
set(cds_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CDSStore)
install(EXPORT CDSStoreTargets NAMESPACE CDS:: DESTINATION ${cds_package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/CDSStoreConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/packaging/CDSStoreConfig.cmake
                              INSTALL_DESTINATION ${cds_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/CDSStoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/CDSStoreConfig.cmake
              ${PROJECT_BINARY_DIR}/packaging/CDSStoreConfigVersion.cmake DESTINATION ${cds_package_dir})

set(cds_pc_files cdsstore)
if(TARGET CDSSupport)
    list(APPEND cds_pc_files cdssupport)
endif()
foreach(name IN LISTS cds_pc_files)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/${name}.pc.in ${PROJECT_BINARY_DIR}/packaging/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
