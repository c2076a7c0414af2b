# Completion for wfx: its commands, then each command's options and file names.
_wfx_commands() {
  wfx --help 2>/dev/null | sed -n '/^Commands:/,/^$/ s/^  \([a-z0-9-]*\) .*/\1/p'
}

_wfx() {
  local word=${COMP_WORDS[COMP_CWORD]} command='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    [[ ${COMP_WORDS[i]} == -* || ${COMP_WORDS[i - 1]} == @(-H|--host|--wait) ]] || { command=${COMP_WORDS[i]}; break; }
  done
  if [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_wfx_commands) --json --host --wait --verbose --help --version" -- "$word")
  elif [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(wfx "$command" --help 2>/dev/null |
      grep -o -e '--[a-z][a-z-]*')" -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -o filenames -F _wfx wfx
