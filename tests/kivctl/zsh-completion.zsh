# usage: zsh -f zsh-completion.zsh <directory of completions> <program> <what is typed behind it> <what it becomes>
# Types into an interactive zsh, and waits for what that shows.
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PATH=${2:h}:\$PATH; fpath=($1 \$fpath); autoload -U compinit; compinit -u -D; PS1=; unsetopt beep; print REA''DY"
zpty -r -m shell shown '*READY*'
zpty -n -w shell "${2:t} $3"$'\t'
zpty -r -m shell shown "*$4*"
