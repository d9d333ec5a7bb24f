# Writes a version script's exported names as other linkers read them, by `cmake -P`:
#     KIND   apple: symbols of a Mach-O library; windows: a module definition
#     MAP    the version script
#     LIST   the file to write
cmake_minimum_required(VERSION 3.22)
file(STRINGS ${MAP} names REGEX "^ +[A-Za-z_][A-Za-z_0-9]*;$")
list(TRANSFORM names REPLACE "^ +(.*);$" "\\1")
# Variables are imported in another way than functions. The headers say which they are.
file(GLOB_RECURSE headers ${CMAKE_CURRENT_LIST_DIR}/../include/*.h)
set(variables)
foreach(header ${headers})
    file(STRINGS ${header} declarations REGEX "^extern KOSC_API ")
    list(TRANSFORM declarations REPLACE "^.* ([A-Za-z_0-9]+).*$" "\\1")
    list(APPEND variables ${declarations})
endforeach()

set(text "")
foreach(name ${names})
    if(KIND STREQUAL "apple")
        string(APPEND text "_${name}\n")
    elseif(name IN_LIST variables)
        string(APPEND text "    ${name} DATA\n")
    else()
        string(APPEND text "    ${name}\n")
    endif()
endforeach()
if(KIND STREQUAL "windows")
    string(PREPEND text "EXPORTS\n")
endif()
file(CONFIGURE OUTPUT ${LIST} CONTENT "${text}" @ONLY)
