# How the shared libraries are linked: they export the names of their map and nothing else, and need nothing beyond the
# system's C library. Linkers differ in the options for that; each is tried before it is used.
include(CheckLinkerFlag)

# kosc_try_link_options(TARGET OPTION...): adds those that the linker knows.
function(kosc_try_link_options target)
    foreach(option ${ARGN})
        string(MAKE_C_IDENTIFIER "KOSC_LINKER_KNOWS${option}" known)
        check_linker_flag(C ${option} ${known})
        if(${known})
            target_link_options(${target} PRIVATE ${option})
        endif()
    endforeach()
endfunction()

# kosc_export_names(TARGET MAP): a version script where there are symbol versions; else the same names as the list that
# Apple's linker reads, or as the module definition that Windows' linkers read.
function(kosc_export_names target map)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    if(APPLE)
        set(kind apple)
    elseif(WIN32)
        set(kind windows)
    else()
        target_link_options(${target} PRIVATE -Wl,--version-script=${map})
        return()
    endif()
    set(list ${CMAKE_CURRENT_BINARY_DIR}/${target}.def)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${map})
    execute_process(COMMAND ${CMAKE_COMMAND} -DKIND=${kind} -DMAP=${map} -DLIST=${list}
        -P ${PROJECT_SOURCE_DIR}/cmake/export_list.cmake COMMAND_ERROR_IS_FATAL ANY)
    if(APPLE)
        target_link_options(${target} PRIVATE -Wl,-exported_symbols_list,${list})
    else()
        target_sources(${target} PRIVATE ${list})
    endif()
endfunction()

# kosc_link_shared(TARGET MAP)
function(kosc_link_shared target map)
    kosc_export_names(${target} ${map})
    # --as-needed: CMake adds the C++ runtime to whatever has C++ objects, but nothing here needs it.
    kosc_try_link_options(${target} -Wl,--hash-style=gnu -Wl,--as-needed)
    if(APPLE)
        kosc_try_link_options(${target} -Wl,-dead_strip_dylibs) # what --as-needed does elsewhere
    elseif(WIN32)
        # The compiler's own library is linked in, and a later version of the DLL can lie beside this one.
        kosc_try_link_options(${target} -static-libgcc)
        set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_NAME ${target}-${PROJECT_VERSION_MAJOR})
        # Hosts see the variables through the DLL's table of imports.
        target_compile_definitions(${target} INTERFACE KOSC_DLL)
    elseif(NOT KOSC_SANITIZE)
        kosc_try_link_options(${target} -Wl,--no-undefined)
    endif()
endfunction()
