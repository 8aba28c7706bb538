# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# Completion of ovattr in bash. Commands, options and forms are those that --help names.

_ovattr() {
  local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]}
  local previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=() word help commands options takes
  COMPREPLY=()

  help=$("$program" --help 2>/dev/null) || return
  commands=$(_ovattr_commands "$help")
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    grep -qxF -e "$word" <<<"$commands" || continue
    command+=("$word")
    help=$("$program" "${command[@]}" --help 2>/dev/null) || return
    commands=$(_ovattr_commands "$help")
  done

  # The line of the option before the cursor says what stands behind it.
  takes=
  [[ $previous != -* ]] ||
    takes=$(grep -E "^  (-[a-z],)?${previous}[ ,]" <<<"$help" |
      sed -E 's/^  [-a-z,]+//; s/^ ([A-Z]+).*form to (read|write): ([^;]*).*/\1 \3/')
  case $takes in
    FORM\ *)
      word=${takes#FORM }
      word=${word//,/ }
      mapfile -t COMPREPLY < <(compgen -W "${word/ or / }" -- "$current")
      return
      ;;
    \ N\ *) return ;;
  esac

  if [[ $current == -* ]]; then
    options=$(grep -E '^  -' <<<"$help" | grep -oE '^  [-a-z,]+' | tr ',' ' ')
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif [ -n "$commands" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
  else
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

# The commands that a help text lists, a line each.
_ovattr_commands() {
  sed -n '/^Subcommands:$/,/^$/ s/^  \([a-z]\+\) .*/\1/p' <<<"$1"
}

complete -F _ovattr ovattr
