# Adds a test that runs a command in a sandbox of its own, on a private bus with the simulated server:
#
#   kiv_add_test(NAME <name> [SANDBOX <option>...] COMMAND <command> [<argument>...])
#
# The command is a program, or a target that builds one. SANDBOX takes options of kiv-sandbox, such as --scenario
# <scenario>. The test gets the path of kiv-sandbox in the environment variable KIV_SANDBOX, so it can run
# "$KIV_SANDBOX control".
function(kiv_add_test)
  cmake_parse_arguments(PARSE_ARGV 0 test "" NAME "SANDBOX;COMMAND")
  # The conditions compare texts, because if() takes a name such as "off" for false.
  if("${test_NAME}" STREQUAL "" OR "${test_COMMAND}" STREQUAL "" OR NOT "${test_UNPARSED_ARGUMENTS}" STREQUAL "")
    string(JOIN " " arguments ${ARGV})
    message(FATAL_ERROR "kiv_add_test() must be given NAME, COMMAND and, if need be, SANDBOX, got: ${arguments}")
  endif()
  if(NOT TARGET kiv::kiv-sandbox)
    message(FATAL_ERROR "kiv_add_test() cannot add ${test_NAME}, because kiv-sandbox was not found. With find_package(): "
                        "install the tools (in Debian, kiv-tools), or give its path by -DKIV_SANDBOX=. With "
                        "add_subdirectory(): -DKIV_BUILD_TOOLS=ON builds it.")
  endif()
  list(GET test_COMMAND 0 program)
  if(TARGET ${program})
    string(REGEX REPLACE "^[^;]+" "$<TARGET_FILE:${program}>" test_COMMAND "${test_COMMAND}")
  endif()
  # env sets the variable, and not a property of the test, because set_tests_properties(... ENVIRONMENT ...) would
  # replace that property.
  set(sandbox "/usr/bin/env KIV_SANDBOX=$<TARGET_FILE:kiv::kiv-sandbox> $<TARGET_FILE:kiv::kiv-sandbox>")
  # The brackets pass each argument as it is. Without them, an empty argument would be lost, and a semicolon would split
  # one.
  set(options "")
  foreach(option IN LISTS test_SANDBOX)
    string(APPEND options " [==[${option}]==]")
  endforeach()
  set(command "")
  foreach(argument IN LISTS test_COMMAND)
    string(APPEND command " [==[${argument}]==]")
  endforeach()
  cmake_language(EVAL CODE "add_test(NAME [==[${test_NAME}]==] COMMAND ${sandbox}${options} --${command})")
endfunction()
