# Bash completion for tessivane-template and tessivane-sync. The long options
# are read from the tool's own --help, so that they never fall behind it;
# arguments complete as file names, and --language as its versions.

_tessivane_tools()
{
    if [[ ${COMP_WORDS[COMP_CWORD - 1]} == --language ]]; then
        COMPREPLY=($(compgen -W '1 2' -- "${COMP_WORDS[COMP_CWORD]}"))
        return
    fi
    _longopt "$@"
}
complete -F _tessivane_tools tessivane-template tessivane-sync
