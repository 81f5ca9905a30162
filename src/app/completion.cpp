#include <algorithm>
#include <string_view>

#include "app/documents.h"
#include "app/help_sections.h"
#include "session/constant.h"

namespace orvane {
namespace {

constexpr std::string_view kScript =
    R"sh(# Completion of orvane's command line in bash. Made from the program's tables.

# Puts the words back together that bash cuts at colons: into `words`, up to the one at the cursor.
_orvane_join() {
  local i word before=
  words=()
  for ((i = 0; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if ((${#words[@]})) && [[ $word == :* || ($before == : && -n $word) ]]; then
      words[${#words[@]}-1]+=$word
    else
      words+=("$word")
    fi
    before=$word
  done
}

# Offers those of the arguments that begin as the word at the cursor does.
_orvane_offer() {
  local typed=${COMP_WORDS[COMP_CWORD]} word
  [[ $typed == : ]] && typed=
  # bash replaces what stands behind the last colon only, if it cuts there.
  local kept=$((${#current} - ${#typed})) plain=${current//\\/}
  for word in "$@"; do
    [[ $word == "$plain"* ]] || continue
    [[ $word == *[:/] ]] && compopt -o nospace 2>/dev/null
    COMPREPLY+=("$(printf %q "${word:kept}")")
  done
}

_orvane_files() {
  compopt -o filenames 2>/dev/null
  local name
  while IFS= read -r name; do
    if [[ -z $1 || -d $name || $name == *"$1" ]]; then COMPREPLY+=("$name"); fi
  done < <(compgen -f -- "$current")
}

# Files behind the key $1, which end in $2.
_orvane_named_files() {
  local key=$1 name names=()
  while IFS= read -r name; do
    if [[ -d $name ]]; then names+=("$key$name/"); elif [[ $name == *"$2" ]]; then names+=("$key$name"); fi
  done < <(compgen -f -- "${current#"$key"}")
  _orvane_offer "${names[@]}"
}

_orvane_folders() {
  compopt -o filenames 2>/dev/null
  local name
  while IFS= read -r name; do COMPREPLY+=("$name"); done < <(compgen -d -- "$current")
}

_orvane_actions=(@ACTIONS@)
_orvane_globals=(@GLOBALS@)
_orvane_constants=(@CONSTANTS@)

# The options of action $1.
_orvane_options() {
  case $1 in
@OPTIONS@  esac
}

# Words for the value of action $1's option $2; $3 is the constant.
_orvane_values() {
  case $1:$2:$3 in
@VALUES@  esac
}

_orvane() {
  local words current action= at=1 i
  COMPREPLY=()
  _orvane_join
  current=${words[-1]}
  local last=$((${#words[@]} - 1)) previous=
  ((last > 0)) && previous=${words[last-1]}
  while ((at < last)) && [[ " ${_orvane_globals[*]} " == *" ${words[at]%%:*}"[:\ ]* ]]; do ((at++)); done
  if ((at >= last)); then
    _orvane_offer "${_orvane_actions[@]}" "${_orvane_globals[@]}" --help --version
    return
  fi
  action=${words[at]}
  case $action in
    help | --help | -h) ((last == at + 1)) && _orvane_offer "${_orvane_actions[@]}"; return ;;
    config) ((last == at + 1)) && { _orvane_files .cfg; _orvane_offer --help; }; return ;;
    checkdigits) _orvane_files; ((last == at + 1)) && _orvane_offer --help; return ;;
    digitviewer | validate) ((last == at + 1)) && { _orvane_files; _orvane_offer --help; return; } ;;
  esac
  case $action:$previous in
@PATHS@  esac
  for ((i = at + 1; i < last; i++)); do
    if [[ ${words[i]} == -swap* ]]; then _orvane_folders; return; fi
  done
  local constant=${words[at+1]%%:*}
  if [[ $action == custom && $last -eq $((at + 1)) ]]; then
    if [[ $current == custom:* ]]; then
      _orvane_named_files custom: .cfg
    else
      _orvane_offer "${_orvane_constants[@]}" --help
    fi
  elif [[ $current == *:* ]]; then
    local values=()
    _orvane_values "$action" "${current%%:*}" "$constant"
    _orvane_offer "${values[@]/#/${current%%:*}:}"
  else
    local options=()
    _orvane_options "$action"
    ((last == at + 1)) && options+=(--help)
    _orvane_offer "${options[@]}"
  fi
}

complete -F _orvane orvane
)sh";

// A word for bash that means itself.
std::string quoted(const std::string& word) { return "'" + word + "'"; }

// What is typed of an option: its key, and the colon where a value follows.
std::string opening(const OptionText& option) {
  const bool has_value =
      std::string_view(option.form).substr(std::string_view(option.key).size()).starts_with(":");
  return option.key + std::string(has_value ? ":" : "");
}

std::string array(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + quoted(word);
  return text;
}

// The first words of the table's rows.
std::vector<std::string> openings(const std::vector<OptionText>& options) {
  std::vector<std::string> words;
  for (const OptionText& option : options) words.push_back(opening(option));
  return words;
}

std::string option_cases() {
  std::string text;
  for (const Action& action : actions()) {
    if (!action.options) continue;
    std::vector<std::string> words = openings(action.options());
    if (action.key == std::string_view("bench"))
      for (const BenchSize& size : bench_sizes()) words.push_back(size.token);
    text += "    " + std::string(action.key) + ") options=(" + array(words) + ") ;;\n";
  }
  return text;
}

std::string value_case(const std::string& pattern, const std::vector<std::string>& words) {
  return words.empty() ? "" : "    " + pattern + ") values=(" + array(words) + ") ;;\n";
}

std::string value_cases() {
  std::string text;
  for (const Action& action : actions()) {
    if (!action.options) continue;
    for (const OptionText& option : action.options()) {
      const std::string start = std::string(action.key) + ":" + option.key + ":";
      if (option.values == Values::kAlgorithm) {
        for (const ConstantWord& word : constant_words())
          text +=
              value_case(start + quoted(word.word), value_words(option.values, catalogue()[word.index].key));
      }
      text += value_case(start + "*", value_words(option.values));
    }
  }
  return text;
}

std::string path_cases() {
  std::string text;
  for (const Action& action : actions()) {
    if (!action.options) continue;
    for (const OptionText& option : action.options()) {
      const char* offer = option.values == Values::kFolder ? "_orvane_folders"
                          : option.values == Values::kFile ? "_orvane_files"
                                                           : nullptr;
      if (offer) text += "    " + std::string(action.key) + ":" + option.key + ") " + offer + "; return ;;\n";
    }
  }
  return text;
}

std::string constant_openings() {
  std::vector<std::string> words;
  for (const ConstantWord& word : constant_words()) {
    const bool argument = make_constant(word.index)->takes_argument();
    words.push_back(word.word + std::string(argument ? ":" : ""));
  }
  return array(words);
}

std::string filled(std::string_view script,
                   std::initializer_list<std::pair<std::string_view, std::string>> values) {
  std::string text(script);
  for (const auto& [mark, value] : values) text.replace(text.find(mark), mark.size(), value);
  return text;
}

}  // namespace

std::string bash_completion() {
  std::vector<std::string> keys;
  for (const Action& action : actions()) keys.push_back(action.key);
  return filled(kScript, {{"@ACTIONS@", array(keys)},
                          {"@GLOBALS@", array(openings(option_texts(global_options())))},
                          {"@CONSTANTS@", constant_openings()},
                          {"@OPTIONS@", option_cases()},
                          {"@PATHS@", path_cases()},
                          {"@VALUES@", value_cases()}});
}

std::string option_list() {
  std::string text;
  const auto add = [&](const char* action, const std::vector<OptionText>& options) {
    for (const OptionText& option : options)
      text += std::string(action) + "\t" + option.key + "\t" + option.form + "\n";
  };
  add("global", option_texts(global_options()));
  for (const Action& action : actions()) {
    text += std::string(action.key) + "\t\t" + action.form + "\n";
    if (action.options) add(action.key, action.options());
  }
  for (const BenchSize& size : bench_sizes())
    text += std::string("bench\t") + size.token + "\t" + size.token + "\n";
  return text;
}

}  // namespace orvane
