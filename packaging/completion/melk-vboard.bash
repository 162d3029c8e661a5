# Completion of melk and vboard in bash: sub-commands, options and their values,
# all taken from what the program itself prints for --help, so that this file has
# no list of its own. Source it from ~/.bashrc, or copy it as `melk` and as
# `vboard` into /usr/share/bash-completion/completions.

# Sub-commands of a help text: entries of every section but options and positionals.
_melk_vboard_commands() {
  awk '/^[A-Z][A-Za-z ]*:$/ { listed = !/^(Options|Positionals|Examples?):/ }
       listed && /^  [a-z]/ { print $1 }'
}

# Options of a help text.
_melk_vboard_options() {
  awk '/^[A-Z][A-Za-z ]*:$/ { listed = /^Options:/ }
       listed && /^  -/ { gsub(",", " ", $1); print $1 }'
}

# What the help text says behind an option; nothing for a flag. A description
# begins at column 30, or on a line of its own.
_melk_vboard_value() {
  awk -v option="$1" '/^  -/ {
    count = split($1, names, ",")
    for (i = 1; i <= count; ++i)
      if (names[i] == option && NF > 1 && index($0, " " $2) < 30) print $2
  }'
}

# Names of a section of `vboard operations`.
_melk_vboard_operations() {
  "$1" operations 2>/dev/null | awk -v section="$2" '/^[A-Z]/ { at = $1 } at == section && /^  / { print $1 }'
}

# What may stand behind the name of a fault, as `vboard operations` has it: the devices
# that end the line of one that wants a DEVICE, words of "DELAY|never"; and "off".
_melk_vboard_fault() {
  "$1" operations 2>/dev/null | awk -v name="$2" '
    /^[A-Z]/ { at = $1 }
    at == "Fault" && $1 == name {
      if ($2 == "DEVICE" && sub(/.*: /, "")) print
      else if (split($2, words, "|") > 1) print words[2]
    }'
  echo off
}

# Positional arguments of a help text: files, alternatives, or names of the world.
# Behind the word are those between it and the command.
_melk_vboard_positionals() {
  local program=$1 command=$2 word=$3 rest
  local -a given=("${@:4}")
  rest=$(awk '/^[A-Z][A-Za-z ]*:$/ { listed = /^Positionals:/ } listed && /^  / { print }')
  case $command in
    fault)
      case ${#given[@]} in
        0) rest=$(_melk_vboard_operations "$program" Fault) ;;
        1) rest=$(_melk_vboard_fault "$program" "${given[0]}") ;;
        *) rest=off ;;
      esac
      mapfile -t COMPREPLY < <(compgen -W "$rest" -- "$word")
      ;;
    set-standard) mapfile -t COMPREPLY < <(compgen -W "$(_melk_vboard_operations "$program" Standard)" -- "$word") ;;
    *)
      if [[ $rest =~ (^|$'\n')"  "(FILE|PACKAGE|DIR|TRACE|file|trace|command)" " ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
      else
        # "component|vga|none" stands for its words.
        mapfile -t COMPREPLY < <(compgen -W "$(grep -oE '\<[a-z0-9]+(\|[a-z0-9]+)+\>|\<clear\>|\<crash\>' <<<"$rest" | tr '|' '\n')" -- "$word")
      fi
      ;;
  esac
}

_melk_vboard_values() {
  local value=$1 word=$2
  case $value in
    DIR) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    DEVICE) mapfile -t COMPREPLY < <(compgen -G "${word:-/dev/spidev}*") ;;
    FILE* | TEXT*) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    *) return ;; # a number
  esac
  compopt -o filenames 2>/dev/null
}

_melk_vboard() {
  local program=$1 word=$2 before=$3 help command= i value
  COMPREPLY=()
  help=$("$program" --help 2>/dev/null) || return
  local commands
  commands=$(_melk_vboard_commands <<<"$help")
  for ((i = 1; i < COMP_CWORD; ++i)); do
    # The value of an option is no command.
    if [[ ${COMP_WORDS[i - 1]} == -* && -n $(_melk_vboard_value "${COMP_WORDS[i - 1]}" <<<"$help") ]]; then
      continue
    fi
    if grep -qxF -e "${COMP_WORDS[i]}" <<<"$commands"; then
      command=${COMP_WORDS[i]}
      break
    fi
  done
  local own=
  [[ -n $command ]] && own=$("$program" "$command" --help 2>/dev/null)
  if [[ $before == -* ]]; then
    value=$(_melk_vboard_value "$before" <<<"$own"$'\n'"$help")
    if [[ -n $value ]]; then
      _melk_vboard_values "${value%%$'\n'*}" "$word"
      return
    fi
  fi
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_melk_vboard_options <<<"$own"$'\n'"$help")" -- "$word" | sort -u)
  elif [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
  else
    _melk_vboard_positionals "$program" "$command" "$word" "${COMP_WORDS[@]:i+1:COMP_CWORD-i-1}" <<<"$own"
  fi
}

complete -F _melk_vboard melk vboard
