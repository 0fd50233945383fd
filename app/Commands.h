// The tessel command's sub-commands. Each returns the process exit code:
// 0 success, 1 failure (the error's number and description on stderr).
// Wrong command lines are CLI11's to report, with exit code 2.
#pragma once

#include <string>
#include <vector>

namespace tessel::app {

struct InitOptions {
  std::string folder;
  std::string database;  // connection text; empty for a SQLite file in the folder
  bool force = false;
};
int RunInit(const InitOptions& options);

struct JobAddOptions {
  std::string jobId;
  std::string file;
  std::string description;
  int maxInstance = 0;
  bool replace = false;
  // A replaced job keeps its description and limit unless they are given.
  bool descriptionGiven = false;
  bool maxInstanceGiven = false;
};
int RunJobAdd(const JobAddOptions& options);
int RunJobList();

struct RunOptions {
  std::string jobId;
  bool testMode = false;
  bool progress = false;
  bool verbose = false;
};
int RunJob(const RunOptions& options);

struct LogOptions {
  std::string jobId;
  int instance = 0;  // 0: the latest run
};
int RunLog(const LogOptions& options);

// Reads a text on stdin (one trailing line break dropped) and prints its
// cipher text for appconfig.xml and the SYSTEMS table.
int RunEncrypt();

struct EvalOptions {
  std::string expression;
};
// Evaluates a script expression (or, over several lines, a body whose last
// statement gives the value) with the configuration's function library and
// prints the value.
int RunEval(const EvalOptions& options);

// Prints a failure as "tessel: error NUMBER: DESCRIPTION" on stderr; the whole
// trace when verbose. Returns 1. Call inside a catch block.
int ReportFailure(bool verbose = false);

}  // namespace tessel::app
