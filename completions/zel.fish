# Completion of zel for fish, which asks the one for bash.
set -g __zel_bash (path resolve (status dirname)/../../bash-completion/completions/zel)

function __zel_complete
    bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _zel_complete; printf "%s\n" "${COMPREPLY[@]}"' \
        $__zel_bash (commandline -opc) (commandline -ct)
end

complete -c zel -f -a '(__zel_complete)'
