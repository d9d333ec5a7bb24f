# What `cmake --install` puts under the prefix, and how other projects find it there.
option(KOSC_INSTALL "Generate the install rules" ${PROJECT_IS_TOP_LEVEL})
if(NOT KOSC_INSTALL)
    return()
endif()
include(CMakePackageConfigHelpers)

set(KOSC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kosc)
install(TARGETS kosc kosc_static EXPORT kosc)
install(DIRECTORY include/kosc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The library depends on no other package, so its targets are all that the package has to say.
install(EXPORT kosc NAMESPACE kosc:: FILE kosc-config.cmake DESTINATION ${KOSC_CMAKE_DIR})
write_basic_package_version_file(kosc-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kosc-config-version.cmake DESTINATION ${KOSC_CMAKE_DIR})

# The file finds its prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH KOSC_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/kosc.pc.in kosc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kosc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY tests/vectors/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kosc/vectors USE_SOURCE_PERMISSIONS
    PATTERN __pycache__ EXCLUDE)
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
