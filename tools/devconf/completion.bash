# SPDX-License-Identifier: MIT
# Completes the commands, options and tables of devconf.

_devconf() {
  local cur prev words cword
  _init_completion || return

  local tables='tb_parameter tb_dm tb_pb stb_pb stb_1_pb tb_speedd tb_dialp tb_fkey tb_line tb_siptk tb_route stb_route
    tb_tone'
  case $prev in
    --home) _filedir -d; return ;;
    --file | --from | --offline) _filedir; return ;;
    -t | --table) COMPREPLY=($(compgen -W "$tables" -- "$cur")); return ;;
  esac
  case $cur in
    -*)
      COMPREPLY=($(compgen -W '--escape --file --from --help --home --json --merge --offline --raw --replace --table
        --version' -- "$cur"))
      return ;;
  esac

  local plain=() index=1
  while [ "$index" -lt "$cword" ]; do
    case ${words[index]} in
      --home | --file | --from | --offline | --table | -t) index=$((index + 1)) ;;
      -*) ;;
      *) plain+=("${words[index]}") ;;
    esac
    index=$((index + 1))
  done

  case "${#plain[@]} ${plain[0]}" in
    '0 ') COMPREPLY=($(compgen -W 'batch del diff export find get import init list pb salvage set tables verify watch' \
      -- "$cur")) ;;
    '1 list' | '1 find' | '1 export' | '1 watch') COMPREPLY=($(compgen -W "$tables" -- "$cur")) ;;
    '1 import' | '1 diff' | '1 batch') _filedir ;;
    '1 pb') COMPREPLY=($(compgen -W 'add del find number set' -- "$cur")) ;;
  esac
}

complete -F _devconf devconf
