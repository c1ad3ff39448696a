// Commands that work on a graph, and the one that plays a file. `words` is a launch line, in one piece or several, or the name of a graph file.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace pantiq::app {

// What a run does in the middle of its stream: "switch.Enabled=false", "snap.SnapshotPin".
struct RunMoment {
  double seconds = 0;
  std::string what;
};

struct RunArguments {
  std::vector<std::string> words;
  std::int64_t frames = 0;       // 0: no limit
  double seconds = 0, from = 0;  // 0: no limit; from the start
  std::vector<RunMoment> moments;
  bool realtime = false, overwrite = false, json = false, quiet = false;
};

// Frames that a measurement takes if it is given no limit.
inline constexpr std::int64_t kBenchFrames = 300;

int RunGraph(const RunArguments& arguments);
// `run.words` are the filters between the two files, in the words of a launch line; none copies the streams, decoded and
// encoded again.
int ConvertFile(const std::string& in, const std::string& out, RunArguments run);
int BenchGraph(const RunArguments& arguments);
int CheckGraph(const std::vector<std::string>& words, bool json);
// `output` "-" is standard output.
int SaveGraph(const std::vector<std::string>& words, const std::string& output, bool overwrite);
int DrawGraph(const std::vector<std::string>& words);

struct EditArguments {
  std::string file, component;
  std::string property;  // empty: the one that can be edited
  std::string output;    // empty: the file itself; "-" is standard output
  bool terminal = false, custom = false, overwrite = false;
};

// Lets a person draw the mask of a component, in a window or on the terminal, and writes the graph back.
int EditGraph(const EditArguments& arguments);

struct PlayArguments {
  std::string file;
  std::string video = "Default", audio = "Default";  // devices
  std::int64_t frames = 0;                           // 0: no limit
  double seconds = 0, from = 0;                      // 0: no limit; from the start
  bool mute = false, quiet = false;
};

// Plays a file to screen and sound; keys on the terminal pause, step and jump.
int PlayFile(const PlayArguments& arguments);

}  // namespace pantiq::app
