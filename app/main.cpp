// The tessel command: sets up a configuration, registers jobs, runs them and
// shows their audit log.
#include <cstdlib>
#include <iostream>

#include <CLI/CLI.hpp>

#include "app/Commands.h"
#include "app/ScriptRunner.h"
#include "job/RegistryWrapper.h"

int main(int argc, char** argv) {
  using namespace tessel::app;
  CLI::App app{"tessel: runs data-integration jobs"};
  app.require_subcommand(1);
  std::string configFolder;
  app.add_option("--config", configFolder, "configuration folder (else $TESSEL_APPCONFIG, else /etc/tessel)");

  InitOptions init;
  CLI::App* initCommand = app.add_subcommand("init", "write a configuration and create the job database");
  initCommand->add_option("DIR", init.folder, "configuration folder")->required();
  initCommand->add_option("--db", init.database, "job database connection text (default: a SQLite file in DIR)");
  initCommand->add_flag("--force", init.force, "write over an existing configuration");

  CLI::App* jobCommand = app.add_subcommand("job", "register and list jobs");
  jobCommand->require_subcommand(1);
  JobAddOptions jobAdd;
  CLI::App* jobAddCommand = jobCommand->add_subcommand("add", "register a job document");
  jobAddCommand->add_option("JOBID", jobAdd.jobId, "job id")->required();
  jobAddCommand->add_option("FILE", jobAdd.file, "job document")->required()->check(CLI::ExistingFile);
  jobAddCommand->add_option("--desc", jobAdd.description, "description");
  jobAddCommand->add_option("--max-instance", jobAdd.maxInstance, "runs allowed at once (0: no limit)")
      ->check(CLI::NonNegativeNumber);
  jobAddCommand->add_flag("--replace", jobAdd.replace, "replace the document of an existing job");
  CLI::App* jobListCommand = jobCommand->add_subcommand("list", "list the registered jobs");

  RunOptions run;
  CLI::App* runCommand = app.add_subcommand("run", "run a job");
  runCommand->add_option("JOBID", run.jobId, "job id")->required();
  runCommand->add_flag("--test-mode", run.testMode, "readers stop early, no concurrency lock");
  runCommand->add_flag("--progress", run.progress, "show progress even when stderr is no terminal");
  runCommand->add_flag("--verbose", run.verbose, "print the whole error trace on failure");

  LogOptions log;
  CLI::App* logCommand = app.add_subcommand("log", "print the audit log of a run");
  logCommand->add_option("JOBID", log.jobId, "job id")->required();
  logCommand->add_option("--instance", log.instance, "run number (default: the latest)");

  CLI::App* encryptCommand = app.add_subcommand("encrypt", "encrypt a password read on stdin");

  EvalOptions eval;
  CLI::App* evalCommand = app.add_subcommand("eval", "evaluate a script expression with the function library");
  evalCommand->add_option("EXPRESSION", eval.expression, "expression, as in a map formula")->required();

  std::string scriptFile;
  std::vector<std::string> scriptArgs;
  CLI::App* scriptCommand = app.add_subcommand("script", "run a VBScript file, as cscript does");
  scriptCommand->add_option("FILE", scriptFile, "script file")->required()->check(CLI::ExistingFile);
  scriptCommand->prefix_command();

  for (CLI::App* command :
       {initCommand, jobCommand, jobAddCommand, jobListCommand, runCommand, logCommand, encryptCommand,
        evalCommand}) {
    command->fallthrough();
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    app.exit(error);
    return 2;
  }
  if (!configFolder.empty()) ::setenv(tessel::RegistryWrapper::kEnvironmentVariable, configFolder.c_str(), 1);

  if (initCommand->parsed()) return RunInit(init);
  if (jobAddCommand->parsed()) {
    jobAdd.descriptionGiven = jobAddCommand->count("--desc") > 0;
    jobAdd.maxInstanceGiven = jobAddCommand->count("--max-instance") > 0;
    return RunJobAdd(jobAdd);
  }
  if (jobListCommand->parsed()) return RunJobList();
  if (runCommand->parsed()) return RunJob(run);
  if (logCommand->parsed()) return RunLog(log);
  if (encryptCommand->parsed()) return RunEncrypt();
  if (evalCommand->parsed()) return RunEval(eval);
  if (scriptCommand->parsed()) {
    scriptArgs = scriptCommand->remaining();
    return tessel::RunScriptFile(scriptFile, scriptArgs, std::cout, std::cerr);
  }
  return 2;
}
