#include "client/shell/candidates.h"

#include <algorithm>
#include <memory>

#include "client/command.h"
#include "client/offers.h"

namespace client {

namespace {

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

bool IsOptionWord(const std::string& word) { return word.starts_with('-') && word.size() > 1; }

// The words that are offered, each behind `front`.
void AddOffers(const std::vector<std::string>& offers, const std::string& front,
               const std::string& word, Candidates& candidates) {
  for (const std::string& offer : offers) {
    if (offer == kProbeOffer) {
      candidates.probes = true;
    } else if (offer == kFileOffer || (offer == kAtFileOffer && word.starts_with(front + '@'))) {
      candidates.files = true;
      candidates.before_path = offer == kFileOffer ? front : front + '@';
    } else if (offer != kAtFileOffer) {
      candidates.words.push_back({front + offer, ""});
    }
  }
}

// What stands before the command, or the command itself.
class GlobalPlace {
 public:
  // Takes those of the words that stand there; false when the cursor does.
  bool Take(std::span<const std::string>& before) {
    while (!before.empty()) {
      const std::string word = before.front();
      before = before.subspan(1);
      value_of_ = Find(word == "-H" ? "--host" : word);
      if (value_of_ && value_of_->value) {
        if (before.empty()) return false;
        before = before.subspan(1);
      } else if (word == "help") {
        return false;
      } else if (!IsOptionWord(word)) {
        command_ = FindCommand(word);
        return true;
      }
      value_of_ = nullptr;
    }
    return false;
  }

  const Command* command() const { return command_; }

  Candidates At(const std::string& word) const {
    Candidates candidates;
    const std::size_t equals = word.find('=');
    const GlobalOption* const named = Find(word.substr(0, equals));
    if (value_of_) {
      AddOffers(Words(value_of_->offers), "", word, candidates);
    } else if (equals != std::string::npos && named) {
      AddOffers(Words(named->offers), word.substr(0, equals + 1), word, candidates);
    } else if (word.starts_with('-')) {
      for (const GlobalOption& option : kGlobalOptions) {
        candidates.words.push_back({option.name, option.help});
      }
    } else {
      for (const Command& command : AllCommands()) {
        if (IsListed(command, false)) candidates.words.push_back({command.name, command.summary});
      }
    }
    return candidates;
  }

 private:
  static const GlobalOption* Find(const std::string& name) {
    const auto* const found = std::ranges::find(
        kGlobalOptions, name, [](const GlobalOption& option) { return std::string(option.name); });
    return found == std::end(kGlobalOptions) ? nullptr : found;
  }

  static std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find(' ', at), text.size());
      words.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    return words;
  }

  const GlobalOption* value_of_ = nullptr;
  const Command* command_ = nullptr;
};

// Behind a command.
class CommandPlaceFinder {
 public:
  explicit CommandPlaceFinder(const Command& command) : app_(DefineApp(command, false, action_)) {
    for (CLI::Option* option : OptionsOf(*app_)) {
      (option->get_positional() ? arguments_ : options_).push_back(option);
    }
  }

  void Take(std::span<const std::string> before) {
    for (const std::string& word : before) {
      const bool is_value = value_of_ != nullptr;
      value_of_ = nullptr;
      if (is_value) continue;
      CLI::Option* const option = Find(word.substr(0, word.find('=')));
      if (!option) {
        if (!IsOptionWord(word)) ++arguments_taken_;
        continue;
      }
      given_.push_back(option);
      if (TakesValue(*option) && word.find('=') == std::string::npos) value_of_ = option;
    }
  }

  Candidates At(const std::string& word) {
    Candidates candidates;
    const std::size_t equals = word.find('=');
    CLI::Option* const named = Find(word.substr(0, equals));
    if (value_of_) {
      AddOffers(OffersOf(*value_of_), "", word, candidates);
    } else if (equals != std::string::npos && named) {
      AddOffers(OffersOf(*named), word.substr(0, equals + 1), word, candidates);
    } else if (word.starts_with('-')) {
      AddOptions(candidates);
    } else if (CLI::Option* const argument = NextArgument()) {
      AddOffers(OffersOf(*argument), "", word, candidates);
    }
    return candidates;
  }

 private:
  CLI::Option* Find(const std::string& name) const {
    const auto has_name = [&](CLI::Option* option) { return option->check_name(name); };
    const auto found = std::ranges::find_if(options_, has_name);
    return name.starts_with('-') && found != options_.end() ? *found : nullptr;
  }

  void AddOptions(Candidates& candidates) const {
    for (const CLI::Option* option : options_) {
      if (std::ranges::find(given_, option) != given_.end()) continue;
      const auto& names = option->get_lnames();
      const std::string name =
          names.empty() ? "-" + option->get_snames().front() : "--" + names.front();
      candidates.words.push_back({name, option->get_description()});
    }
  }

  // The last may stand for many.
  CLI::Option* NextArgument() const {
    if (arguments_taken_ < arguments_.size()) return arguments_[arguments_taken_];
    const bool goes_on = !arguments_.empty() && arguments_.back()->get_items_expected_max() > 1;
    return goes_on ? arguments_.back() : nullptr;
  }

  Action action_;
  std::unique_ptr<CLI::App> app_;
  std::vector<CLI::Option*> options_;
  std::vector<CLI::Option*> arguments_;
  std::vector<const CLI::Option*> given_;
  std::size_t arguments_taken_ = 0;
  CLI::Option* value_of_ = nullptr;  // whose value comes next
};

}  // namespace

Candidates CandidatesFor(const std::string& word, std::span<const std::string> before) {
  GlobalPlace global;
  if (!global.Take(before)) return global.At(word);
  if (!global.command() || !IsListed(*global.command(), false)) return {};
  CommandPlaceFinder place(*global.command());
  place.Take(before);
  return place.At(word);
}

}  // namespace client
