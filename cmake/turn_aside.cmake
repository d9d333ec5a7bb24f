# kosc_turn_aside(TARGET LIBRARIES CALLS): links static libraries to a program, and their calls of malloc and the like to
# the program's __wrap_malloc, which may go on to __real_malloc.
function(kosc_turn_aside target libraries calls)
    if(NOT WIN32)
        target_link_libraries(${target} PRIVATE ${libraries})
        list(TRANSFORM calls PREPEND -Wl,--wrap=)
        target_link_options(${target} PRIVATE ${calls})
        return()
    endif()
    # A program there holds code of the C library, such as printf's, whose calls are not meant: the names are changed in
    # copies of the libraries instead.
    set(renamed)
    foreach(call ${calls})
        list(APPEND renamed --redefine-sym ${call}=__wrap_${call})
        target_link_options(${target} PRIVATE -Wl,--defsym,__real_${call}=${call})
    endforeach()
    foreach(library ${libraries})
        set(copy ${CMAKE_CURRENT_BINARY_DIR}/${target}_${library}.a)
        add_custom_command(OUTPUT ${copy} DEPENDS ${library} VERBATIM
            COMMAND ${CMAKE_OBJCOPY} ${renamed} $<TARGET_FILE:${library}> ${copy})
        add_custom_target(${target}_${library} DEPENDS ${copy})
        add_dependencies(${target} ${target}_${library})
        target_link_libraries(${target} PRIVATE ${copy})
        target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:${library},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
endfunction()
