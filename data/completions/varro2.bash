# Completion for varro2: commands and options, and from the live system types, topics and keys.

_varro2_from() { varro2 complete "$@" 2>/dev/null; }

# Keeps the words that begin like the one that is being typed. Nothing in them is expanded.
_varro2_offer() {
  local word
  while IFS= read -r word; do
    [[ $word && $word == "$cur"* ]] && COMPREPLY+=("$before$word")
  done <<<"$1"
}

_varro2_files() {
  local word
  while IFS= read -r word; do
    COMPREPLY+=("$before$word")
  done < <(compgen -f -- "$cur")
  compopt -o filenames 2>/dev/null
}

# In quotes an expression is one word: the test that is being typed begins behind the last sign.
_varro2_tests() {
  if [[ $quote ]]; then
    before+=${cur%"${cur##*[ &|(!]}"}
    cur=${cur##*[ &|(!]}
  fi
  _varro2_offer "$(_varro2_from tests; _varro2_from keys)"
}

# Cuts the line up to the cursor into words, without their quotes, and tells which quote is open.
_varro2_split() {
  local line=$1 at character in_word=
  words=() quote=
  for ((at = 0; at < ${#line}; ++at)); do
    character=${line:at:1}
    if [[ $quote ]]; then
      if [[ $character == "$quote" ]]; then
        quote=
      else
        words[-1]+=$character
      fi
    elif [[ $character == [[:space:]] ]]; then
      in_word=
    else
      [[ $in_word ]] || words+=('')
      in_word=yes
      case $character in
      [\'\"]) quote=$character ;;
      \\)
        ((++at))
        words[-1]+=${line:at:1}
        ;;
      *) words[-1]+=$character ;;
      esac
    fi
  done
  [[ $in_word ]] || words+=('')
}

# bash takes ':' and '=' as ends of words where they are not quoted, and wants only what follows the
# last one.
_varro2_after_breaks() {
  local prefix=''
  [[ $quote ]] && return
  [[ $COMP_WORDBREAKS == *:* && $cur == *:* ]] && prefix=${cur%"${cur##*:}"}
  [[ $COMP_WORDBREAKS == *=* && $cur == *=* ]] && prefix=${cur%"${cur##*=}"}
  [[ $prefix ]] || return
  local word found=("${COMPREPLY[@]}")
  COMPREPLY=()
  for word in "${found[@]}"; do
    [[ $word != "$prefix" ]] && COMPREPLY+=("${word#"$prefix"}")
  done
}

_varro2() {
  local cur prev words quote before='' command='' at
  _varro2_split "${COMP_LINE:0:COMP_POINT}"
  local cword=$((${#words[@]} - 1))
  cur=${words[cword]}
  prev=${words[cword - 1]}
  COMPREPLY=()

  local commands='monitor wait state list tree describe types send record replay explain lint convert add-type remove-type status'
  local with_value='--format --to --color --colour --from --output -o --count --timeout --speed --hold --rate'
  # Options and their values do not count as arguments.
  local arguments=()
  for ((at = 1; at < cword; ++at)); do
    if [[ ${words[at]} == -?* ]]; then
      [[ " $with_value " == *" ${words[at]} "* ]] && ((++at))
    elif [[ ! $command ]]; then
      command=${words[at]}
    else
      arguments+=("${words[at]}")
    fi
  done

  if [[ $cur == --*=* ]]; then
    prev=${cur%%=*}
    before=$prev=
    cur=${cur#*=}
  fi
  case $prev in
  --format) _varro2_offer $'text\njson\nonvif' ;;
  --to) _varro2_offer $'xml\nbinary\njson\ndump' ;;
  --color | --colour) _varro2_offer $'auto\nalways\nnever' ;;
  --from | --output | -o) _varro2_files ;;
  --count | --timeout | --speed | --hold | --rate) ;;
  *) _varro2_argument ;;
  esac
  # A key waits for its value.
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
  cur=$before$cur
  _varro2_after_breaks
  return 0
}

_varro2_options() {
  local options='--help --color --verbose'
  case $command in
  '') options+=' --version' ;;
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
  _varro2_offer "${options// /$'\n'}"
}

_varro2_argument() {
  if [[ $cur == -* ]]; then
    _varro2_options
    return
  fi
  local position=${#arguments[@]}
  case $command in
  '') _varro2_offer "${commands// /$'\n'}" ;;
  monitor | wait | state | list) _varro2_tests ;;
  record) if ((position == 0)); then _varro2_files; else _varro2_tests; fi ;;
  explain) if ((position == 0)); then _varro2_tests; else _varro2_files; fi ;;
  describe) _varro2_offer "$(_varro2_from topics; _varro2_from types)" ;;
  send)
    if ((position == 0)); then
      _varro2_offer "$(_varro2_from types)"
    else
      _varro2_offer "$(_varro2_from open-keys "${arguments[0]}")"
    fi
    ;;
  remove-type) _varro2_offer "$(_varro2_from types)" ;;
  add-type) ((position == 1)) && _varro2_files ;;
  lint | convert | replay) _varro2_files ;;
  esac
}

complete -F _varro2 varro2
