# Completes the commands, options and tables of devconf.

_devconf() {
  local cur prev words cword
  _init_completion || return

  local tables='tb_parameter tb_dm tb_pb stb_pb stb_1_pb tb_speedd tb_dialp tb_fkey tb_line tb_siptk tb_route stb_route
    tb_tone'
  case $prev in
    --home) _filedir -d; return ;;
    --file) _filedir; return ;;
  esac
  case $cur in
    -*)
      COMPREPLY=($(compgen -W '--file --help --home --json --merge --replace --version' -- "$cur"))
      return ;;
  esac

  local plain=() index=1
  while [ "$index" -lt "$cword" ]; do
    case ${words[index]} in
      --home | --file) index=$((index + 1)) ;;
      -*) ;;
      *) plain+=("${words[index]}") ;;
    esac
    index=$((index + 1))
  done

  case "${#plain[@]} ${plain[0]}" in
    '0 ') COMPREPLY=($(compgen -W 'del export find get import init list pb set tables verify' -- "$cur")) ;;
    '1 list' | '1 find' | '1 export') COMPREPLY=($(compgen -W "$tables" -- "$cur")) ;;
    '1 import') _filedir ;;
    '1 pb') COMPREPLY=($(compgen -W 'add find number' -- "$cur")) ;;
  esac
}

complete -F _devconf devconf
