// vxparquet-mpi: vxparquet's read, count and stats over the ranks of an MPI launch.
//
//   mpirun -n N vxparquet-mpi read SOURCE... [read's options] [--output-dir DIR]
//   mpirun -n N vxparquet-mpi count|stats SOURCE... [their options]
//
// Rank 0 plans the sources' row groups into N tasks (as 'vxparquet plan' does) and hands each
// rank its task; every rank reads its own. read prints every rank's rows on rank 0's standard
// output in the plan's order (CSV and JSON lines), the same bytes as 'vxparquet read' of the
// same sources prints, or writes one file per rank with --output-dir. count and stats give each
// rank a run of whole files (count --where a task of the plan); rank 0 prints what one process
// prints. An error on any rank is printed by rank 0 with its identifier, and the launch exits
// with its status.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <mpi.h>

#include "Cli.hpp"
#include "RankOutput.hpp"
#include "Split.hpp"
#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"
#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

namespace {

namespace plan = vantro::io::parquet::core::plan;
using vxparquet::mpi::CapturedOutput;

constexpr int kTaskTag = 11;
constexpr int kErrorTag = 12;
constexpr int kResultTag = 13;
// The first byte of a task message: a task text follows, or rank 0's failure.
constexpr char kTaskFollows = 'T';
constexpr char kPlanFailed = 'F';

const char* kUsage =
    "usage: mpirun -n N vxparquet-mpi read|count|stats SOURCE... [options]\n"
    "  the options of 'vxparquet read' (with --format csv or jsonl), 'count' or 'stats'\n"
    "  --output-dir DIR   read: each rank writes its rows to DIR/part-<K>.csv (or .jsonl)\n"
    "                     instead of sending them to rank 0's standard output\n";

int gRank = 0;
int gSize = 1;
bool gTaskSent = false;      // rank 0: every rank has had its task message
bool gTaskReceived = false;  // other ranks: the task message has arrived
bool gResultsDone = false;   // this rank has sent its result (rank 0: taken every rank's)

extern "C" void onInterrupt(int) { utInterruptState::Raise(); }

void sendText(int rank, char kind, const std::string& text, int tag) {
  std::string message(1, kind);
  message += text;
  MPI_Send(message.data(), static_cast<int>(message.size()), MPI_CHAR, rank, tag, MPI_COMM_WORLD);
}

std::string receiveText(int rank, int tag) {
  MPI_Status status;
  MPI_Probe(rank, tag, MPI_COMM_WORLD, &status);
  int count = 0;
  MPI_Get_count(&status, MPI_CHAR, &count);
  std::string text(static_cast<size_t>(count), '\0');
  MPI_Recv(text.data(), count, MPI_CHAR, rank, tag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  return text;
}

// Rank 0 plans and sends every other rank its task; the others wait for theirs.
plan::Task taskFromRankZero(const vxparquet::PlanRequest& request, const vxparquet::SplitChoice&) {
  if (gRank != 0) {
    const std::string message = receiveText(0, kTaskTag);
    gTaskReceived = true;
    if (message.empty() || message[0] != kTaskFollows) {
      throw vxparquet::ProgramError{"vxparquet:" + vxparquet::currentCommand() + ":PlanFailed",
                                    "Rank 0 could not plan the tasks: " + message.substr(1)};
    }
    return plan::taskFromText(message.substr(1));
  }
  std::vector<plan::Task> tasks;
  try {
    tasks = vxparquet::planSources(request, static_cast<uint64_t>(gSize));
  } catch (...) {
    for (int r = 1; r < gSize; ++r) sendText(r, kPlanFailed, "see rank 0's error", kTaskTag);
    gTaskSent = true;
    throw;
  }
  for (int r = 1; r < gSize; ++r) sendText(r, kTaskFollows, plan::taskToText(tasks[r]), kTaskTag);
  gTaskSent = true;
  return tasks[0];
}

// A rank's result for rank 0 (count's reduction). A rank that failed before sending sends an
// empty failure in settleResultMessages; rank 0 leaves its share out, and the rank's own error
// is the one reported.
std::vector<std::string> gatherResults(const std::string& mine) {
  gResultsDone = true;
  if (gRank != 0) {
    sendText(0, kTaskFollows, mine, kResultTag);
    return {};
  }
  std::vector<std::string> all{mine};
  for (int r = 1; r < gSize; ++r) {
    const std::string message = receiveText(r, kResultTag);
    if (!message.empty() && message[0] == kTaskFollows) all.push_back(message.substr(1));
  }
  return all;
}

void settleResultMessages(bool gathering) {
  if (!gathering || gResultsDone) return;
  if (gRank != 0) {
    sendText(0, kPlanFailed, "", kResultTag);
  } else {
    for (int r = 1; r < gSize; ++r) receiveText(r, kResultTag);
  }
}

// Every rank gets exactly one task message: one that its command did not ask for (a failure
// before the plan, on either side) is sent or taken here, so that no rank waits for ever.
void settleTaskMessages() {
  if (gRank == 0 && !gTaskSent) {
    for (int r = 1; r < gSize; ++r) sendText(r, kPlanFailed, "see rank 0's error", kTaskTag);
  } else if (gRank != 0 && !gTaskReceived) {
    receiveText(0, kTaskTag);
  }
}

struct Outcome {
  int status = 0;
  std::string error;  // "<identifier>: <text>" of a failure
};

Outcome runCommand(const std::string& command, std::vector<std::string> words) {
  vxparquet::setCurrentCommand(command);
  try {
    vxparquet::takeThreadsOption(words);
    if (command == "read") return {vxparquet::runRead(words), ""};
    // count reports files that cannot be counted itself (exit status 1, no error of its own).
    if (command == "count") return {vxparquet::runCount(words), ""};
    if (command == "stats") return {vxparquet::runStats(words), ""};
    throw vxparquet::UsageError{"unknown command '" + command +
                                "' (read, count and stats run over ranks)"};
  } catch (const vxparquet::UsageError& e) {
    return {2, "usage: " + e.message};
  } catch (const foundation::core::except::InterruptException& e) {
    return {130, e.identifier() + ": " + e.message()};
  } catch (const foundation::core::except::IMsgIDException& e) {
    return {1, e.identifier() + ": " + e.message()};
  } catch (const vxparquet::ProgramError& e) {
    return {1, e.identifier + ": " + e.message};
  } catch (const std::exception& e) {
    return {1, "vxparquet-mpi:" + command + ":Failed: " + e.what()};
  }
}

// The first failing rank's outcome, as rank 0 learns it (others get theirs back).
Outcome firstFailure(const Outcome& mine) {
  std::vector<int> statuses(static_cast<size_t>(gSize));
  MPI_Allgather(&mine.status, 1, MPI_INT, statuses.data(), 1, MPI_INT, MPI_COMM_WORLD);
  int failed = -1;
  for (int r = 0; r < gSize && failed < 0; ++r) {
    if (statuses[r] != 0) failed = r;
  }
  if (failed < 0) return {};
  if (gRank == failed && gRank != 0) sendText(0, 'E', mine.error, kErrorTag);
  Outcome first{statuses[failed], mine.error};
  if (gRank == 0 && failed != 0) first.error = receiveText(failed, kErrorTag).substr(1);
  if (gRank == 0 && gSize > 1 && !first.error.empty())
    first.error += " (rank " + std::to_string(failed) + " of " + std::to_string(gSize) + ")";
  return first;
}

bool hasWord(const std::vector<std::string>& words, const std::string& word) {
  for (const auto& w : words) {
    if (w == word || w.rfind(word + "=", 0) == 0) return true;
  }
  return false;
}

// Takes "--name VALUE" (or --name=VALUE) out of words.
std::optional<std::string> takeOption(std::vector<std::string>& words, const std::string& name) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] == name && i + 1 < words.size()) {
      std::string value = words[i + 1];
      words.erase(words.begin() + static_cast<long>(i), words.begin() + static_cast<long>(i) + 2);
      return value;
    }
    if (words[i].rfind(name + "=", 0) == 0) {
      std::string value = words[i].substr(name.size() + 1);
      words.erase(words.begin() + static_cast<long>(i));
      return value;
    }
  }
  return std::nullopt;
}

std::string formatOf(std::vector<std::string> words) {
  return takeOption(words, "--format").value_or("table");
}

int finishWith(int status) {
  MPI_Finalize();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  MPI_Comm_rank(MPI_COMM_WORLD, &gRank);
  MPI_Comm_size(MPI_COMM_WORLD, &gSize);
  foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
  foundation::host::initialize();
  std::signal(SIGINT, onInterrupt);
  std::signal(SIGTERM, onInterrupt);

  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || words[0] == "--help" || words[0] == "-h") {
    if (gRank == 0) std::fputs(kUsage, words.empty() ? stderr : stdout);
    return finishWith(words.empty() ? 2 : 0);
  }
  const std::string command = words[0];
  words.erase(words.begin());
  const auto outputDir = takeOption(words, "--output-dir");
  const std::string format = formatOf(words);

  Outcome outcome;
  if (hasWord(words, "--split") || hasWord(words, "--task")) {
    outcome = {2, "usage: the launch splits the sources; --split and --task are not taken"};
  } else if (command == "read" && format != "csv" && format != "jsonl") {
    outcome = {2, "usage: read takes --format csv or jsonl under MPI"};
  } else if (command == "read" && (hasWord(words, "--limit") || hasWord(words, "--offset"))) {
    outcome = {2, "usage: --limit and --offset are not taken under MPI"};
  } else if (outputDir && command != "read") {
    outcome = {2, "usage: --output-dir is for read"};
  }

  std::optional<CapturedOutput> captured;
  if (outcome.status == 0) {
    vxparquet::setTaskSource(taskFromRankZero);
    // stats does not gather, but its ranks print their parts of one document once it is set.
    if (command == "count" || command == "stats") vxparquet::setResultGather(gatherResults);
    words.push_back("--split");
    words.push_back(std::to_string(gRank + 1) + "/" + std::to_string(gSize));
    try {
      captured.emplace(outputDir.value_or(""));
      outcome = runCommand(command, words);
    } catch (const std::exception& e) {
      outcome = {1, "vxparquet-mpi:" + command + ":OutputFailed: " + e.what()};
    }
    if (captured) captured->finish();
  }
  settleTaskMessages();
  settleResultMessages(command == "count" || command == "stats");

  const Outcome failure = firstFailure(outcome);
  // count's files that could not be counted are reported by count itself, beside its output.
  // Only rank 0 knows the failure's text, so it decides for every rank whether output follows.
  int reported = failure.status != 0 && failure.error.empty() ? 1 : 0;
  MPI_Bcast(&reported, 1, MPI_INT, 0, MPI_COMM_WORLD);
  if (failure.status != 0 && reported == 0) {
    if (gRank == 0) {
      std::fprintf(stderr, "vxparquet-mpi %s: error: %s\n", command.c_str(), failure.error.c_str());
    }
    return finishWith(failure.status);
  }

  if (outputDir) {
    const std::string part = *outputDir + "/part-" + std::to_string(gRank + 1) + "." + format;
    const int kept = captured->keepAs(part) ? 0 : 1;
    int anyFailed = 0;
    MPI_Allreduce(&kept, &anyFailed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    if (kept != 0) {
      std::fprintf(stderr,
                   "vxparquet-mpi read: error: vxparquet-mpi:read:OutputFailed: "
                   "Unable to write '%s'.\n",
                   part.c_str());
    }
    return finishWith(anyFailed);
  }
  // One CSV header: the first rank that printed anything keeps its own.
  const bool csvHeader = command == "read" && format == "csv" && !hasWord(words, "--no-header");
  if (gRank == 0) {
    bool printed = vxparquet::mpi::copyToStdout(captured->fd(), false);
    for (int r = 1; r < gSize; ++r) {
      printed = vxparquet::mpi::receiveToStdout(r, csvHeader && printed) || printed;
    }
  } else {
    vxparquet::mpi::sendToRoot(captured->fd());
  }
  return finishWith(failure.status);
}
