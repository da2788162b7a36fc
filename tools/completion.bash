# Completion of velt-sharing for bash: the commands and options that its own --help names at this place.
_velt_sharing() {
  local help
  help=$("${COMP_WORDS[@]:0:COMP_CWORD}" --help 2>/dev/null) || return
  help=$(sed -nE 's/^  (-[a-z],)?(--[a-z-]+|[a-z-]+)( .*)?$/\2/p' <<<"$help")
  mapfile -t COMPREPLY < <(compgen -W "$help" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _velt_sharing velt-sharing
