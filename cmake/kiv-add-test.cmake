# Adds a test that runs a command in a sandbox of its own, on a private bus with the simulated server:
#
#   kiv_add_test(NAME <name> [SANDBOX <option>...] COMMAND <command> [<argument>...])
#
# The command is a program, or a target that builds one. All words behind COMMAND belong to it. SANDBOX takes options of
# kiv-sandbox that start a sandbox, such as --scenario <scenario>. The test gets the path of kiv-sandbox in the
# environment variable KIV_SANDBOX, so it can run "$KIV_SANDBOX control".
function(kiv_add_test)
  # The words are read one by one, because cmake_parse_arguments() would take NAME and SANDBOX out of the command, too.
  # The brackets pass each word as it is. Without them, an empty word would be lost, and a semicolon would split one. The
  # conditions compare texts, because if() takes a name such as "off" for false.
  set(keyword "")
  set(name "")
  set(options "")
  set(program "")
  set(arguments "")
  set(is_wrong FALSE)
  set(bad_option "")
  set(index 0)
  while(index LESS ARGC)
    set(word "${ARGV${index}}")
    math(EXPR index "${index} + 1")
    # The generator expression is the word itself. Without it, add_test() would take the word for one of its keywords.
    string(REGEX REPLACE "^(NAME|COMMAND|COMMAND_EXPAND_LISTS|CONFIGURATIONS|WORKING_DIRECTORY)$" "$<1:\\1>" passed
                         "${word}")
    if("${keyword}" STREQUAL "COMMAND" AND "${program}" STREQUAL "")
      set(program "${word}")
    elseif("${keyword}" STREQUAL "COMMAND")
      string(APPEND arguments " [==[${passed}]==]")
    elseif("${word}" MATCHES "^(NAME|SANDBOX|COMMAND)$")
      set(keyword "${word}")
    elseif("${keyword}" STREQUAL "NAME" AND "${name}" STREQUAL "")
      set(name "${word}")
    elseif("${keyword}" STREQUAL "SANDBOX")
      # Such a word would end the options, or start no sandbox, and the test would pass without its command.
      if("${word}" MATCHES "^(--|-h|--help|--version|--list|--list-scenarios)$"
         OR ("${options}" STREQUAL "" AND NOT "${word}" MATCHES "^--"))
        set(bad_option "\"${word}\"")
      endif()
      string(APPEND options " [==[${word}]==]")
    else()
      set(is_wrong TRUE)
    endif()
  endwhile()
  if(is_wrong OR "${name}" STREQUAL "" OR "${program}" STREQUAL "")
    string(JOIN " " words ${ARGV})
    message(FATAL_ERROR "kiv_add_test() must be given NAME, COMMAND and, if need be, SANDBOX, got: ${words}")
  endif()
  if(NOT "${bad_option}" STREQUAL "")
    message(FATAL_ERROR "kiv_add_test(NAME ${name}): SANDBOX must have options of kiv-sandbox that start a sandbox, such "
                        "as --scenario no-speakers, got ${bad_option}")
  endif()
  if(NOT TARGET kiv::kiv-sandbox)
    message(FATAL_ERROR "kiv_add_test() cannot add ${name}, because kiv-sandbox was not found. With find_package(): "
                        "install the tools (in Debian, kiv-tools), or give its path by -DKIV_SANDBOX=. With "
                        "add_subdirectory(): -DKIV_BUILD_TOOLS=ON builds it.")
  endif()
  if(TARGET "${program}")
    set(program "$<TARGET_FILE:${program}>")
  endif()
  # env sets the variable, and not a property of the test, because set_tests_properties(... ENVIRONMENT ...) would
  # replace that property.
  set(sandbox "/usr/bin/env KIV_SANDBOX=$<TARGET_FILE:kiv::kiv-sandbox> $<TARGET_FILE:kiv::kiv-sandbox>")
  set(command "[==[${program}]==]${arguments}")
  cmake_language(EVAL CODE "add_test(NAME [==[${name}]==] COMMAND ${sandbox}${options} -- ${command})")
endfunction()
