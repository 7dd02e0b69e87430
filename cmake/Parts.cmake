# A part is built where what it needs is there.

# Declares an option: ON requires what the part needs; AUTO builds the part where that is there, and never within another
# project.
function(kiv_part_option option description)
  if(NOT DEFINED ${option})
    set(${option} AUTO CACHE STRING "${description}: ON, OFF, or AUTO")
    set_property(CACHE ${option} PROPERTY STRINGS AUTO ON OFF)
  endif()
endfunction()

# Appends to a list the Debian packages of those CMake packages that are not found. Arguments: CMake package, Debian
# package, and so on. A macro, because what find_package sets is for the caller.
macro(kiv_missing_packages missing)
  set(pairs ${ARGN})
  while(pairs)
    list(POP_FRONT pairs name package)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
      list(APPEND ${missing} ${package})
    endif()
  endwhile()
endmacro()

# Appends to a list the Debian packages of those programs that are not found. Arguments: the variable that gets the path,
# the program's names with a | between them, Debian package, and so on.
macro(kiv_missing_programs missing)
  set(triples ${ARGN})
  while(triples)
    list(POP_FRONT triples variable names package)
    string(REPLACE "|" ";" names "${names}")
    find_program(${variable} NAMES ${names})
    if(NOT ${variable})
      list(APPEND ${missing} ${package})
    endif()
  endwhile()
endmacro()

# Makes an option ON or OFF; further arguments are the Debian packages, and what else, the part needs and lacks.
function(kiv_settle option part)
  string(JOIN ", " missing ${ARGN})
  set(value ${${option}})
  if(value STREQUAL AUTO)
    set(value ON)
    if(NOT KIV_IS_TOP_LEVEL)
      set(value OFF)
    elseif(ARGN)
      set(value OFF)
      message(STATUS "Left out: ${part}. Missing: ${missing}")
    endif()
  elseif(value AND ARGN)
    message(FATAL_ERROR "${option} is ${value}, and for ${part} what it needs is missing: ${missing}")
  endif()
  set(${option} ${value} PARENT_SCOPE)
endfunction()
