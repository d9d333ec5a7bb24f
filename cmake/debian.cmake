# Debian packages, by `cpack` in a build tree of the preset "packages": libkosc1, libkosc-dev, libkosc-doc, kosc-tools,
# python3-kosc.
set(DEBIAN ${PROJECT_SOURCE_DIR}/cmake/debian)
set(KOSC_DEBIAN_RELEASE 1)

# Each package carries the licence and the two changelogs, compressed as Debian wants them.
function(kosc_document package component)
    set(folder ${PROJECT_BINARY_DIR}/debian/${package})
    file(MAKE_DIRECTORY ${folder})
    configure_file(${DEBIAN}/changelog ${folder}/changelog.Debian)
    configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${folder}/changelog COPYONLY)
    execute_process(COMMAND gzip -9nf ${folder}/changelog.Debian ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${DEBIAN}/copyright ${folder}/changelog.Debian.gz ${folder}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

# The Python package: pip installs it elsewhere, so a plain `cmake --install` leaves it out.
set(DIST_PACKAGES lib/python3/dist-packages)
set(DIST_INFO ${PROJECT_BINARY_DIR}/debian/METADATA)
file(WRITE ${DIST_INFO} "Metadata-Version: 2.1\nName: kosc\nVersion: ${PROJECT_VERSION}\nSummary: ${PROJECT_DESCRIPTION}\n")
install(DIRECTORY bindings/python/kosc DESTINATION ${DIST_PACKAGES} COMPONENT python EXCLUDE_FROM_ALL
    PATTERN __pycache__ EXCLUDE)
install(FILES ${DIST_INFO} DESTINATION ${DIST_PACKAGES}/kosc-${PROJECT_VERSION}.dist-info
    COMPONENT python EXCLUDE_FROM_ALL)
install(DIRECTORY bindings/python/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/python3-kosc COMPONENT python
    EXCLUDE_FROM_ALL USE_SOURCE_PERMISSIONS)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR libkosc)
set(CPACK_PACKAGE_CONTACT "libkosc developers <developers@libkosc.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library transfer development documents tools python)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KOSC_DEBIAN_RELEASE})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/transfer)

set(SAME_VERSION "(= ${PROJECT_VERSION}-${KOSC_DEBIAN_RELEASE})")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
# kosc_package(COMPONENT NAME SECTION SUMMARY LINE): what every package says of itself.
macro(kosc_package component name section summary line)
    kosc_document(${name} ${component})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "data-over-sound modem, ${summary}
libkosc sends short messages as sound between 18 and 21 kHz, and hears them
again, through noise and echoes. ${line}")
endmacro()
kosc_package(library libkosc1 libs "shared library" "This is the library that programs load.")
kosc_package(transfer libkosc-transfer1 libs "transfer library"
    "This library carries files and long
text over such messages.")
kosc_package(development libkosc-dev libdevel "development files"
    "Headers, static library, CMake and pkg-config
files, and known answers for other implementers.")
kosc_package(documents libkosc-doc doc "documentation"
    "How apps and other hosts
use it, what is on the air, how far it reaches, what it costs, and examples.")
kosc_package(tools kosc-tools sound "command"
    "The command kosc writes messages into
sound files and finds them in recordings.")
kosc_package(python python3-kosc python "Python package"
    "Encoder, receiver and the modem's
stages on numpy arrays.")

configure_file(${DEBIAN}/shlibs ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/debian/shlibs;${DEBIAN}/triggers")
set(CPACK_DEBIAN_TRANSFER_PACKAGE_SHLIBDEPS ON)
file(WRITE ${PROJECT_BINARY_DIR}/debian/transfer/shlibs
    "libkosc_transfer 1 libkosc-transfer1 (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_TRANSFER_PACKAGE_CONTROL_EXTRA
    "${PROJECT_BINARY_DIR}/debian/transfer/shlibs;${DEBIAN}/triggers")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkosc1 ${SAME_VERSION}, libkosc-transfer1 ${SAME_VERSION}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libkosc-doc, python3")
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkosc1 (>= ${PROJECT_VERSION}), libkosc-transfer1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3, python3-numpy, libkosc1 (>= ${PROJECT_VERSION}), libkosc-transfer1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
    "python3-matplotlib, python3-nacl, python3-pyaudio, python3-scipy, python3-soundfile")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${DEBIAN}/postinst;${DEBIAN}/prerm")
include(CPack)
