#!/bin/bash
# usage: subdirectory.sh <source directory> <work directory>
# Another project takes the library alone, and its own install rules, flags and tests stay as they are.
set -euo pipefail
. "$(dirname "$0")/common.sh"

build_parent subdirectory
