#!/bin/bash
# usage: c-host.sh <compiler> <library directory> <header> <list of exports> <program>
# Builds and runs a program in C, with the flags of pkg-config. The program uses every export that C can express.
set -euo pipefail
export LC_ALL=C

objects=(g_GetSystemVal g_KivDisabled g_strDeviceName m_launchthreadId)
of_cxx=$(tr -d '\n' <"$3" | grep -oP '\w+(?=\([^()]*std::vector)' | sort -u)
functions=$(grep -x '\w*' "$4" | sort | comm -23 - <(printf '%s\n' "${objects[@]}") | comm -23 - <(echo "$of_cxx"))
echo "$(wc -w <<<"$of_cxx") functions are for C++ alone, $(wc -w <<<"$functions") for C"
test "$(wc -w <<<"$functions")" -gt 80

{
  echo '#include <KivServiceInterface.h>'
  echo 'static void (*const volatile functions[])(void) = {'
  sed 's/.*/    (void (*)(void))&,/' <<<"$functions"
  echo '};'
  echo 'static const volatile void* const volatile objects[] = {'
  printf '    &%s,\n' "${objects[@]}"
  echo '};'
  cat <<'TEXT'
#if !KIV_CHECK_VERSION(KIV_VERSION_MAJOR, KIV_VERSION_MINOR, KIV_VERSION_MICRO) || \
    !KIV_CHECK_VERSION(0, 99, 99) || KIV_CHECK_VERSION(99, 0, 0) || \
    KIV_CHECK_VERSION(KIV_VERSION_MAJOR, KIV_VERSION_MINOR, KIV_VERSION_MICRO + 1) || \
    KIV_CHECK_VERSION(KIV_VERSION_MAJOR, KIV_VERSION_MINOR + 1, 0)
#error "KIV_CHECK_VERSION compares wrongly"
#endif

int main(void)
{
    const STNetSpkConfig speaker = {.nConfig = 1};
    return functions[0] && objects[0] && sizeof speaker == 86 && sizeof(spk_list_info_s) == 1086 &&
                   get_size_of_spk_info_s(1, "any") == (int)sizeof(spk_info_s) && !GetWhetherKivDisabled()
               ? 0
               : 1;
}
TEXT
} >"$5.c"

flags=$(PKG_CONFIG_PATH=$2/pkgconfig pkg-config --cflags --libs libkiv-interface-api)
# shellcheck disable=SC2086 # several words
"$1" -std=c11 -Wall -Wextra -Wpedantic -Werror -o "$5" "$5.c" $flags "-Wl,-rpath,$2"
"$5"
