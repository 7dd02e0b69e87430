# Decides which parts of the project are built.

# Declares an option for a part. ON requires the packages that the part needs. AUTO builds the part if they are found,
# but never as part of another project.
function(kiv_part_option option description)
  if(NOT DEFINED ${option})
    set(${option} AUTO CACHE STRING "${description}: ON, OFF, or AUTO")
    set_property(CACHE ${option} PROPERTY STRINGS AUTO ON OFF)
  endif()
endfunction()

# Appends to a list the Debian packages of CMake packages that are not found. Arguments: a CMake package, its Debian
# package, and so on. This is a macro, because the caller uses the variables that find_package() sets.
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

# Appends to a list the Debian packages of programs that are not found. Arguments: the variable for the program's path,
# the program's names with a | between them, its Debian package, and so on.
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

# Sets an option to ON or OFF. Further arguments are the Debian packages, and other things, that the part needs and that
# are missing.
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
