# The command's man pages, made by scdoc where it is there.
find_program(KOSC_SCDOC scdoc)
if(NOT KOSC_SCDOC)
    message(STATUS "No scdoc: the man pages are not built")
    return()
endif()
file(GLOB KOSC_MAN_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.1.scd)
set(KOSC_MAN_PAGES)
foreach(source ${KOSC_MAN_SOURCES})
    get_filename_component(page ${source} NAME_WLE)
    set(page ${PROJECT_BINARY_DIR}/man/${page})
    add_custom_command(OUTPUT ${page}.gz
        COMMAND sh -c "\"$0\" < \"$1\" > \"$2\" && gzip -9nf \"$2\"" ${KOSC_SCDOC} ${source} ${page}
        DEPENDS ${source} VERBATIM)
    list(APPEND KOSC_MAN_PAGES ${page}.gz)
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
add_custom_target(kosc_manual ALL DEPENDS ${KOSC_MAN_PAGES})
install(FILES ${KOSC_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
