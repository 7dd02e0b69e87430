# Adds a test that runs a command in a sandbox of its own, on a private bus with the simulated server:
#
#   kiv_add_test(NAME <name> [SANDBOX <option>...] COMMAND <command> [<argument>...])
#
# The command is a program or a target that is one. SANDBOX has options of kiv-sandbox, such as --scenario <scenario>.
function(kiv_add_test)
  cmake_parse_arguments(PARSE_ARGV 0 test "" NAME "SANDBOX;COMMAND")
  if(NOT test_NAME OR NOT test_COMMAND OR test_UNPARSED_ARGUMENTS)
    string(JOIN " " arguments ${ARGV})
    message(FATAL_ERROR "kiv_add_test() must be given NAME, COMMAND and, if need be, SANDBOX, got: ${arguments}")
  endif()
  if(NOT TARGET kiv::kiv-sandbox)
    message(FATAL_ERROR "kiv_add_test() cannot add ${test_NAME}, because kiv-sandbox was not found. With find_package(): "
                        "install the tools (in Debian, kiv-tools), or give its path by -DKIV_SANDBOX=. With "
                        "add_subdirectory(): -DKIV_BUILD_TOOLS=ON builds it.")
  endif()
  list(POP_FRONT test_COMMAND program)
  if(TARGET ${program})
    set(program $<TARGET_FILE:${program}>)
  endif()
  add_test(NAME ${test_NAME} COMMAND $<TARGET_FILE:kiv::kiv-sandbox> ${test_SANDBOX} -- ${program} ${test_COMMAND})
endfunction()
