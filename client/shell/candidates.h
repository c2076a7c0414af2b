// What may stand at a place of the command line, by the table of the commands.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace client {

struct Candidate {
  std::string word;
  std::string about;  // may be empty
};

struct Candidates {
  std::vector<Candidate> words;  // as they are known, whatever the word begins with
  bool probes = false;           // and the probes' names
  bool files = false;            // and paths,
  std::string before_path;       // behind this
};

// For a word that begins with `word`, behind the words `before` and the program's name.
Candidates CandidatesFor(const std::string& word, std::span<const std::string> before);

}  // namespace client
