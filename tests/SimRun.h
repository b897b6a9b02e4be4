// Runs the simulator program on a scenario text, as a user would, and keeps
// its exit status, standard output, standard error and JSON report.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "Json.h"
#include "TempDir.h"

struct SimRun {
   int status = -1;  // exit status; -1 when the program did not exit normally
   std::string out, err;
   Sim::Json report;  // null without --json or when the run failed

   // `args` go to the command line as they are; with json, a --json report is written and parsed.
   static SimRun of(const std::string& scenario, const std::string& args = "", bool json = false) {
      TempDir dir;
      dir.write("scenario.yaml", scenario);
      std::string command = std::string(VYRPTP_SIM_PROGRAM) + " " + dir.path("scenario.yaml") + " " + args;
      if (json) command += " --json " + dir.path("report.json");
      command += " >" + dir.path("out") + " 2>" + dir.path("err");
      SimRun r;
      const int rc = std::system(command.c_str());
      r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
      r.out = dir.read("out");
      r.err = dir.read("err");
      if (json && r.status == 0) r.report = Sim::Json::parse(dir.read("report.json"));
      return r;
   }
};
