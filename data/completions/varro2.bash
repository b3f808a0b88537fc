# Completion for varro2: commands and options, and from the live system types, topics and keys.

_varro2_from() { varro2 complete "$@" 2>/dev/null; }

# Keeps the words that begin like the one that is being typed. Nothing in them is expanded.
_varro2_offer() {
  local word
  while IFS= read -r word; do
    [[ $word && $word == "$cur"* ]] && COMPREPLY+=("$word")
  done <<<"$1"
}

# bash takes ':' and '=' as ends of words, and wants only what follows the last one.
_varro2_after_breaks() {
  local prefix=''
  [[ $COMP_WORDBREAKS == *:* && $cur == *:* ]] && prefix=${cur%"${cur##*:}"}
  [[ $COMP_WORDBREAKS == *=* && $cur == *=* ]] && prefix=${cur%"${cur##*=}"}
  [[ $prefix ]] && COMPREPLY=("${COMPREPLY[@]#"$prefix"}")
}

_varro2() {
  local cur prev words cword
  read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
  [[ ${COMP_LINE:0:COMP_POINT} == *[[:space:]] ]] && words+=('')
  cword=$((${#words[@]} - 1))
  cur=${words[cword]}
  prev=${words[cword - 1]}
  COMPREPLY=()

  local commands='monitor wait state list tree describe types send record replay explain lint convert add-type remove-type status'
  local command='' at
  for ((at = 1; at < cword; ++at)); do
    if [[ " $commands " == *" ${words[at]} "* ]]; then
      command=${words[at]}
      break
    fi
  done

  case $prev in
  --format) _varro2_offer $'text\njson\nonvif'; return ;;
  --to) _varro2_offer $'xml\nbinary\njson\ndump'; return ;;
  --color | --colour) _varro2_offer $'auto\nalways\nnever'; return ;;
  --from | --output | -o) COMPREPLY=($(compgen -f -- "$cur")); return ;;
  --count | --timeout | --speed | --hold | --rate) return ;;
  esac

  local options='--help'
  case $command in
  '')
    options='--help --version --color --verbose'
    [[ $cur == -* ]] || { _varro2_offer "${commands// /$'\n'}"; return; }
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
    _varro2_offer "${options// /$'\n'}"
    return
  fi

  local position=$((cword - at))
  case $command in
  monitor | wait | state | list)
    _varro2_offer "$(_varro2_from tests; _varro2_from keys)"
    ;;
  record)
    if ((position == 1)); then
      COMPREPLY=($(compgen -f -- "$cur"))
    else
      _varro2_offer "$(_varro2_from tests; _varro2_from keys)"
    fi
    ;;
  describe) _varro2_offer "$(_varro2_from topics; _varro2_from types)" ;;
  send)
    if ((position == 1)); then
      _varro2_offer "$(_varro2_from types)"
    else
      _varro2_offer "$(_varro2_from open-keys "${words[at + 1]}")"
    fi
    ;;
  remove-type) _varro2_offer "$(_varro2_from types)" ;;
  add-type) ((position == 2)) && COMPREPLY=($(compgen -f -- "$cur")) ;;
  explain) ((position == 2)) && COMPREPLY=($(compgen -f -- "$cur")) ;;
  lint | convert | replay) COMPREPLY=($(compgen -f -- "$cur")) ;;
  esac
  # A key waits for its value.
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
  _varro2_after_breaks
  return 0
}

complete -F _varro2 varro2
