#!/bin/bash
# usage: runner.sh <program with tests that end in all ways>
# Checks what the main function of the test programs says with --fork, and its exit code.
set -euo pipefail
program=$1
problems=0

# expect <filter> <exit code> <regular expression for a line>... Prefixed by "not ", no line may match an expression.
expect() {
    local code=0 output expression
    output=$("$program" --fork --gtest_filter="$1" 2>&1) || code=$?
    [ "$code" = "$2" ] || problem "$1: ended with $code, must be $2" "$output"
    for expression in "${@:3}"; do
        if [[ $expression == "not "* ]]; then
            ! grep -q -- "${expression#not }" <<<"$output" || problem "$1: a line with ${expression#not }" "$output"
        else
            grep -q -- "$expression" <<<"$output" || problem "$1: no line with $expression" "$output"
        fi
    done
}

problem() {
    printf '%s\n' "$@"
    problems=$((problems + 1))
}

# counts <all> <passed> <failed> <skipped>
counts() {
    echo "^Of $1 tests, $2 passed, $3 failed, $4 were skipped$"
}

export KIV_TEST_LIMIT=60
expect 'OutcomeTest.Passes*' 0 "$(counts 2 2 0 0)" 'not Passes' 'not what a good test prints'
expect 'OutcomeTest.Passes:OutcomeTest.Fails' 1 "$(counts 2 1 1 0)" '^OutcomeTest.Fails: ended with code 1[.]' \
    '^what a bad test prints$' 'not what a good test prints' 'Outcomes.cpp:[0-9]*: Failure'
expect 'OutcomeTest.Passes:*IsSkipped' 77 "$(counts 2 1 0 1)" '^OutcomeTest.IsSkipped: skipped[.]' '^the reason$'
expect '*IsSkipped:*Fails' 1 "$(counts 2 0 1 1)"
# A test that ends the process is not the end of the others.
expect '*IsKilled:*ValueTest*/0' 1 '^OutcomeTest.IsKilled: ended by signal 9[.]' "$(counts 2 1 1 0)"
expect '*Exits:*ValueTest*/0' 1 '^OutcomeTest.Exits: ended with code 0[.]' "$(counts 2 1 1 0)"
expect '*AtTheEndOfTheProcess' 1 'ended with code 3[.]' "$(counts 1 0 1 0)"
expect '*ValueTest*-*/4' 1 '^Numbers/ValueTest.FailsIfOdd/1: ended with code 1' 'not FailsIfOdd/4' "$(counts 5 2 3 0)"
expect 'OutcomeTest.P*:*NeverRuns' 0 "$(counts 2 2 0 0)"
expect 'OutcomeTest.*NeverRuns' 1 "$(counts 0 0 0 0)"
expect 'NoSuchTest.*' 1 "$(counts 0 0 0 0)"
KIV_TEST_LIMIT=1 expect '*Hangs:*ValueTest*/0' 1 '^OutcomeTest.Hangs: ended with code 1[.]' \
    '^OutcomeTest.Hangs hangs: it has not ended after 1 s' "$(counts 2 1 1 0)"
KIV_TEST_LIMIT=1 expect '*HangsWithoutAlarm:*ValueTest*/0' 1 '^OutcomeTest.HangsWithoutAlarm: ended by signal 9[.]' \
    "$(counts 2 1 1 0)"

# Each test is in one share, and a share without tests fails.
export GTEST_TOTAL_SHARDS=2
GTEST_SHARD_INDEX=0 expect '*ValueTest*' 0 "$(counts 3 3 0 0)"
GTEST_SHARD_INDEX=1 expect '*ValueTest*' 1 "$(counts 3 0 3 0)" '/1: ended' '/3: ended' '/5: ended'
GTEST_SHARD_INDEX=1 expect 'OutcomeTest.Passes' 1 "$(counts 0 0 0 0)"
exit "$((problems != 0))"
