#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "client/commands.h"
#include "client/offers.h"

namespace client {

namespace {

// The shell replaces only what stands behind the last of its word breaks, and so is told only that;
// an @ breaks words, but is replaced.
constexpr const char* kBash = R"(# Completion for wfx, which says itself what may come next.
_wfx() {
  local line=${COMP_LINE:0:COMP_POINT} word kept candidate about path
  local -a words
  read -ra words <<<"$line"
  [[ $line == *[[:space:]] ]] && words+=('')
  word=${words[-1]}
  kept=${word%"${word##*[$COMP_WORDBREAKS]}"}
  kept=${kept%@}
  COMPREPLY=()
  while IFS=$'\t' read -r candidate about; do
    if [[ $candidate == :files ]]; then
      compopt -o filenames
      while IFS= read -r path; do
        path=$about$path
        COMPREPLY+=("${path#"$kept"}")
      done < <(compgen -f -- "${word#"$about"}")
    else
      COMPREPLY+=("${candidate#"$kept"}")
    fi
  done < <("$1" __complete "=$word" "${words[@]:1:${#words[@]}-2}" 2>/dev/null)
}
complete -F _wfx wfx
)";

constexpr const char* kZsh = R"(#compdef wfx
# Completion for wfx, which says itself what may come next.
compdef _wfx wfx
_wfx() {
  local line
  local -a answer matches
  answer=("${(@f)$("${(Q)words[1]}" __complete "=$PREFIX" "${(@Q)words[2,CURRENT-1]}" 2>/dev/null)}")
  for line in "${answer[@]}"; do
    case $line in
      '') ;;
      :files*) compset -P "${(b)line#*$'\t'}"; _files ;;
      *$'\t'*) matches+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}") ;;
      *) matches+=("${line//:/\\:}") ;;
    esac
  done
  (( $#matches )) && _describe wfx matches -M 'm:{a-zA-Z}={A-Za-z}'
}
[[ $funcstack[1] != _wfx ]] || _wfx "$@"
)";

// What is not completed here PowerShell takes for a path.
constexpr const char* kPowerShell = R"(# Completion for wfx, which says itself what may come next.
Register-ArgumentCompleter -Native -CommandName wfx, wfx.exe -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $program = $commandAst.GetCommandName()
  $before = @($commandAst.CommandElements | Select-Object -Skip 1 |
    Where-Object { $_.Extent.EndOffset -lt $cursorPosition } | ForEach-Object { "$_".Trim('"', "'") })
  & $program __complete "=$wordToComplete" @before 2>$null | ForEach-Object {
    $word, $about = $_ -split "`t", 2
    if ($word -eq ':files') { return }
    if (-not $about) { $about = $word }
    [System.Management.Automation.CompletionResult]::new($word, $word, 'ParameterValue', $about)
  }
}
)";

}  // namespace

Action DefineCompletion(CLI::App& app) {
  auto shell = std::make_shared<std::string>();
  const std::map<std::string, std::string> scripts = {
      {"bash", kBash}, {"zsh", kZsh}, {"powershell", kPowerShell}};
  app.add_option("SHELL", *shell, "The shell")->required()->check(CLI::IsMember(scripts));
  app.footer(
      "bash, for this session:  source <(wfx completion bash)\n"
      "zsh:                     source <(wfx completion zsh)\n"
      "PowerShell:              wfx completion powershell | Out-String | Invoke-Expression");
  return [shell, scripts](Context& context) { return context.output.Print(scripts.at(*shell)); };
}

}  // namespace client
