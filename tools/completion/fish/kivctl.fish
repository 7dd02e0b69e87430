# kivctl --complete prints the words that may follow.
function __kivctl_candidates
    set -l words (commandline -opc)
    set -l candidates ($words[1] --complete $words[2..] 2>/dev/null)
    if set -q candidates[1]
        printf '%s\n' $candidates
    else
        __fish_complete_path (commandline -ct)
    end
end

complete -c kivctl -f -a '(__kivctl_candidates)'
complete -c kivctl -n '__fish_seen_subcommand_from explain' -F
