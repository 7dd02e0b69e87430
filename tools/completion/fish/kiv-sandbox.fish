# Completes kiv-sandbox and kiv-simulator with the words that their help lists.
function __kiv_sandbox_candidates
    set -l words (commandline -opc)
    if contains -- -- $words
        complete -C (string replace -r '^.*? -- +' '' -- (commandline -cp))
        return
    end
    set -l isSandbox (string match -r 'kiv-sandbox$' -- $words[1])
    if set -q isSandbox[1]; and contains -- $words[-1] --scenario apply
        $words[1] --list-scenarios | string replace -r ' +' '\t'
        __fish_complete_path (commandline -ct)
        return
    end
    if set -q isSandbox[1]; and test "$words[-1]" = --join
        $words[1] --list 2>/dev/null | string replace -r ' .*' ''
        return
    end
    set -l command $words[1]
    if test "$words[2]" = control
        set command $words[1..3]
    end
    set -l help ($command --help 2>/dev/null)
    # The help lists the values of an option or of the first argument of a command.
    set -l awaited
    if string match -q -- '-*' $words[-1]
        set awaited $words[-1]
    else if test "$words[2]" = control; and test (count $words) = 3; and not string match -q -- '-*' (commandline -ct)
        set awaited '[A-Z]+'
    end
    if set -q awaited[1]
        set -l values (string replace -rf -- '^  '$awaited' ([a-z-]+(?:\|[a-z-]+)+)(?: .*)?$' '$1' $help | string split '|')
        set -a values (string replace -rf -- '^  ([A-Za-z_]+)$' '$1' $help)
        if set -q values[1]
            printf '%s\n' $values
            return
        end
    end
    if string match -q -- '-*' $words[-1]; and string match -qr -- "^  $words[-1] \S" $help
        __fish_complete_path (commandline -ct)
        return
    end
    string replace -rf -- '^  (?:-h,)?(--[a-z-]+)(?: \S+)? +(.*)' '$1\t$2' $help
    string replace -rf -- '^  ([a-z-]+)  +(.*)' '$1\t$2' $help
    if set -q isSandbox[1]; and test (count $command) = 1
        printf '%s\n' -- control
    end
end

complete -c kiv-sandbox -f -a '(__kiv_sandbox_candidates)'
complete -c kiv-simulator -f -a '(__kiv_sandbox_candidates)'
