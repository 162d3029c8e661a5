// The outcome of a melk command: exit status, standard output and standard error.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "melk/arguments.h"

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

inline Outcome run(melk::Transport& board, const std::vector<std::string>& words,
                   const melk::Options& options = {}) {
  char* out_text = nullptr;
  char* err_text = nullptr;
  std::size_t out_size = 0;
  std::size_t err_size = 0;
  FILE* out = open_memstream(&out_text, &out_size);
  FILE* err = open_memstream(&err_text, &err_size);
  const int code = melk::melk_command(board, words, out, err, options);
  fclose(out);
  fclose(err);
  Outcome outcome = {code, std::string(out_text, out_size), std::string(err_text, err_size)};
  free(out_text);
  free(err_text);
  return outcome;
}
