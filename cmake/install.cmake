# What `cmake --install` puts under the prefix, and how other projects find it there. The components are the parts that
# are packaged apart: cmake/debian.cmake.
option(KOSC_INSTALL "Generate the install rules" ${PROJECT_IS_TOP_LEVEL})
if(NOT KOSC_INSTALL)
    return()
endif()
include(CMakePackageConfigHelpers)

set(KOSC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kosc)
install(TARGETS kosc kosc_static EXPORT kosc
    RUNTIME COMPONENT library
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
install(TARGETS kosc_transfer kosc_transfer_static EXPORT kosc
    RUNTIME COMPONENT transfer
    LIBRARY COMPONENT transfer NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
install(DIRECTORY include/kosc include/kosc_transfer DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# The library depends on no other package, so its targets are all that the package has to say.
install(EXPORT kosc NAMESPACE kosc:: FILE kosc-config.cmake DESTINATION ${KOSC_CMAKE_DIR} COMPONENT development)
write_basic_package_version_file(kosc-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kosc-config-version.cmake DESTINATION ${KOSC_CMAKE_DIR} COMPONENT development)

# The file finds its prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH KOSC_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/kosc.pc.in kosc.pc @ONLY)
configure_file(transfer/kosc_transfer.pc.in kosc_transfer.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kosc.pc ${PROJECT_BINARY_DIR}/kosc_transfer.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(DIRECTORY tests/vectors/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kosc/vectors COMPONENT development
    USE_SOURCE_PERMISSIONS PATTERN __pycache__ EXCLUDE)
# The documents lie as they do here, with all that they link to.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents
    FILES_MATCHING REGEX "\\.(md|png|jpg|svg|c|cpp)$" PATTERN man EXCLUDE)
install(DIRECTORY bindings DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents
    FILES_MATCHING PATTERN README.md PATTERN examples/*.py PATTERN examples/Hello.*
    PATTERN src EXCLUDE PATTERN jni EXCLUDE PATTERN example EXCLUDE PATTERN test EXCLUDE PATTERN tests EXCLUDE PATTERN kosc EXCLUDE PATTERN __pycache__ EXCLUDE)

if(TARGET kosc_tool)
    install(FILES tools/kosc/kosc.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kosc
        COMPONENT tools)
    include(cmake/manual.cmake)
endif()
option(KOSC_DEBIAN_PACKAGES "Let cpack build Debian packages" OFF)
if(KOSC_DEBIAN_PACKAGES)
    include(cmake/debian.cmake)
endif()
