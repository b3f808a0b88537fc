# Completion for varro2: commands and options, and from the live system types, topics and keys.

_varro2_from() { varro2 complete "$@" 2>/dev/null; }

_varro2() {
  local cur prev words cword
  if declare -F _init_completion >/dev/null; then
    _init_completion -n =: || return
  else
    COMPREPLY=()
    words=("${COMP_WORDS[@]}")
    cword=$COMP_CWORD
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
  fi

  local commands='monitor wait state list tree describe types send record replay explain lint convert add-type remove-type status'
  local command='' at
  for ((at = 1; at < cword; ++at)); do
    if [[ " $commands " == *" ${words[at]} "* ]]; then
      command=${words[at]}
      break
    fi
  done

  case $prev in
  --format) COMPREPLY=($(compgen -W 'text json onvif' -- "$cur")); return ;;
  --to) COMPREPLY=($(compgen -W 'xml binary json dump' -- "$cur")); return ;;
  --color | --colour) COMPREPLY=($(compgen -W 'auto always never' -- "$cur")); return ;;
  --from | --output | -o) COMPREPLY=($(compgen -f -- "$cur")); return ;;
  --count | --timeout | --speed | --hold | --rate) return ;;
  esac

  local options='--help'
  case $command in
  '')
    options='--help --version --color --verbose'
    [[ $cur == -* ]] || { COMPREPLY=($(compgen -W "$commands" -- "$cur")); return; }
    ;;
  monitor) options+=' --count --timeout --format --json --secure --notifications' ;;
  wait) options+=' --timeout --format --json --secure' ;;
  list | state | types | describe | status) options+=' --json' ;;
  tree) options+=' --types --json' ;;
  send) options+=' --from --timeout --hold --rate' ;;
  record) options+=' --count --timeout --force' ;;
  replay) options+=' --speed --timeout' ;;
  explain) options+=' --live --json' ;;
  lint) options+=' --json --strict' ;;
  convert) options+=' --to --output' ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
    return
  fi

  local IFS=$'\n' position=$((cword - at))
  case $command in
  monitor | wait | state | list)
    COMPREPLY=($(compgen -W "$(_varro2_from tests; _varro2_from keys)" -- "$cur"))
    ;;
  record)
    if ((position == 1)); then
      COMPREPLY=($(compgen -f -- "$cur"))
    else
      COMPREPLY=($(compgen -W "$(_varro2_from tests; _varro2_from keys)" -- "$cur"))
    fi
    ;;
  describe) COMPREPLY=($(compgen -W "$(_varro2_from topics; _varro2_from types)" -- "$cur")) ;;
  send)
    if ((position == 1)); then
      COMPREPLY=($(compgen -W "$(_varro2_from types)" -- "$cur"))
    else
      COMPREPLY=($(compgen -W "$(_varro2_from open-keys "${words[at + 1]}")" -- "$cur"))
    fi
    ;;
  remove-type) COMPREPLY=($(compgen -W "$(_varro2_from types)" -- "$cur")) ;;
  add-type) ((position == 2)) && COMPREPLY=($(compgen -f -- "$cur")) ;;
  explain) ((position == 2)) && COMPREPLY=($(compgen -f -- "$cur")) ;;
  lint | convert | replay) COMPREPLY=($(compgen -f -- "$cur")) ;;
  esac
  # A key waits for its value.
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
  declare -F __ltrim_colon_completions >/dev/null && __ltrim_colon_completions "$cur"
  return 0
}

complete -F _varro2 varro2
