# Checks the floors of the source tree without building anything:
#   cmake -DSOURCE=<tree> -P check_floors.cmake
# Every #include line of every source and header in the module folders, tools/ and
# include/qv/ is read; a file may include only its own floor and the floors below it. An
# internal include "folder/x.hpp" has the floor of its folder, a public header "qv/x.h" the
# floor of its module (the table below), a bare name the includer's own floor. Tests,
# benchmarks and examples are exempt. Any violation, or a public header missing from the
# table, fails the check with the file and line.

# Floors, lowest first; folders on one floor may include each other.
set(floor_0 core)
set(floor_1 strings platform)
set(floor_2 messages)
set(floor_3 containers dataline)
set(floor_4 types)
set(floor_5 dates)
set(floor_6 values)
set(floor_7 language)
set(floor_8 tools)

# Public headers: the module folder each one belongs to.
set(public_qv_export core)
set(public_except core)
set(public_alloc core)
set(public_encoding strings)
set(public_qvstring strings)
set(public_qvstrlib strings)
set(public_textutil strings)
set(public_platform platform)
set(public_message messages)
set(public_msgclass messages)
set(public_feedback messages)
set(public_qvlist containers)
set(public_array containers)
set(public_pageptrs containers)
set(public_handle containers)
set(public_dataline dataline)
set(public_datatype types)
set(public_precise types)
set(public_date dates)
set(public_interval dates)
set(public_dataval values)
set(public_express language)
set(public_qvvar language)
set(public_builtin language)
set(public_qvcommon tools) # the umbrella header: every module, for hosts

if(NOT SOURCE)
  message(FATAL_ERROR "usage: cmake -DSOURCE=<source tree> -P check_floors.cmake")
endif()

set(module_folders)
foreach(floor RANGE 0 8)
  foreach(folder ${floor_${floor}})
    set(floor_of_${folder} ${floor})
    list(APPEND module_folders ${folder})
  endforeach()
endforeach()

set(problems)

# Sets `out` to the floor of public header `name` (e.g. "date.h"), or records a problem.
function(public_floor name where out)
  string(REGEX REPLACE "\\.h$" "" stem "${name}")
  if(NOT DEFINED public_${stem})
    set(problems ${problems} "${where}: qv/${name} is not in the table of public headers: add it to the table in cmake/check_floors.cmake" PARENT_SCOPE)
    set(${out} "" PARENT_SCOPE)
    return()
  endif()
  set(${out} ${floor_of_${public_${stem}}} PARENT_SCOPE)
endfunction()

# Sets `out` to the floor of the included `path` as seen from a file on floor `own`.
function(included_floor path own where out)
  if(path MATCHES "^qv/([^/]+)$")
    public_floor(${CMAKE_MATCH_1} "${where}" floor)
  elseif(path MATCHES "^([^/]+)/")
    set(folder ${CMAKE_MATCH_1})
    if(DEFINED floor_of_${folder})
      set(floor ${floor_of_${folder}})
    else()
      set(problems ${problems} "${where}: includes ${path}, outside the module folders" PARENT_SCOPE)
      set(floor "")
    endif()
  else()
    set(floor ${own})
  endif()
  set(problems ${problems} PARENT_SCOPE)
  set(${out} "${floor}" PARENT_SCOPE)
endfunction()

# Checks one file whose floor is `own`; in include/qv a bare name is a public header.
function(check_file file own public)
  file(RELATIVE_PATH relative ${SOURCE} ${file})
  file(STRINGS ${file} lines)
  set(number 0)
  foreach(line IN LISTS lines)
    math(EXPR number "${number} + 1")
    if(NOT line MATCHES "^[ \t]*#[ \t]*include[ \t]*(\"([^\"]+)\"|<(qv/[^>]+)>)")
      continue()
    endif()
    set(path "${CMAKE_MATCH_2}${CMAKE_MATCH_3}")
    set(where "${relative}:${number}")
    if(public AND NOT path MATCHES "/")
      set(path "qv/${path}")
    endif()
    included_floor("${path}" ${own} "${where}" floor)
    if(NOT floor STREQUAL "" AND floor GREATER own)
      list(JOIN floor_${own} ", " own_names)
      list(JOIN floor_${floor} ", " higher_names)
      set(problems ${problems}
          "${where}: ${own_names} (floor ${own}) includes ${path} of ${higher_names} (floor ${floor})")
    endif()
  endforeach()
  set(problems ${problems} PARENT_SCOPE)
endfunction()

set(checked 0)
foreach(folder ${module_folders})
  file(GLOB_RECURSE files ${SOURCE}/${folder}/*.cpp ${SOURCE}/${folder}/*.hpp
       ${SOURCE}/${folder}/*.h ${SOURCE}/${folder}/*.c ${SOURCE}/${folder}/*.inc)
  foreach(file ${files})
    check_file(${file} ${floor_of_${folder}} FALSE)
    math(EXPR checked "${checked} + 1")
  endforeach()
endforeach()
file(GLOB headers ${SOURCE}/include/qv/*.h)
foreach(file ${headers})
  get_filename_component(name ${file} NAME)
  public_floor(${name} "include/qv/${name}" own)
  if(NOT own STREQUAL "")
    check_file(${file} ${own} TRUE)
  endif()
  math(EXPR checked "${checked} + 1")
endforeach()

if(problems)
  list(JOIN problems "\n  " report)
  message(FATAL_ERROR "the floors do not hold:\n  ${report}\n"
          "Floors, lowest first: core; strings, platform; messages; containers, dataline; "
          "types; dates; values; language; tools.")
endif()
message(STATUS "floors hold in ${checked} files")
