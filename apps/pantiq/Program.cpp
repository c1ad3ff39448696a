// The command line: commands, options, examples.
#include "pantiq/program/PQProgram.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <exception>
#include <span>

#include "Commands.h"
#include "Console.h"
#include "DeviceTrial.h"
#include "ListCommands.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQClassInfo.h"
#include "sinks/ProgramSink.h"

namespace pantiq::app {
namespace {

constexpr const char* kExamples = R"(Examples:
  pantiq run --frames 100 'TPQJaehneGen ! TPQMirror MirrorType=mtBoth ! checksum'
  pantiq run 'TPQASFPlayer FileName=in.mp4 ! TPQFixedFilter FilterType=ftSobelVert ! TPQASFLogger FileName=out.asf'
  pantiq convert in.mp4 out.mkv TPQFixedFilter FilterType=ftSharpen
  pantiq run --seconds 2 'TPQJaehneGen ! y4m' | ffplay -
  pantiq save 'TPQJaehneGen ! TPQMirror ! checksum' -o mirror.pqg     (sinks of the program are refused)
  pantiq play in.mp4 --from 1m30s
  pantiq edit graph.pqg PQMorphFilter1 --custom
  pantiq inspect TPQMirror

A launch line names classes in order; ! connects them, Name=Value sets a property, and a word Name=sob names a component.
Exit codes: 0 done; 1 a failure while running; 2 a bad graph, file or value; 128 + N ended by signal N, all files closed.)";

// "12", "12s", "500ms", "1m30s", "1:05:00.5": seconds, not negative. False if it is none of them.
bool ParseTime(std::string_view text, double& seconds) {
  seconds = 0;
  bool some = false;
  while (!text.empty()) {
    double part = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), part, std::chars_format::fixed);
    if (error != std::errc() || !(part >= 0) || part > 1e9) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    some = true;
    if (text.empty()) {
      seconds += part;
    } else if (text.starts_with("ms")) {
      seconds += part / 1000;
      text.remove_prefix(2);
    } else if (text.starts_with(':')) {
      seconds = (seconds + part) * 60;
      text.remove_prefix(1);
      if (text.empty()) return false;
    } else if (text.front() == 's' || text.front() == 'm' || text.front() == 'h') {
      seconds += part * (text.front() == 's' ? 1 : text.front() == 'm' ? 60 : 3600);
      text.remove_prefix(1);
    } else {
      return false;
    }
  }
  return some;
}

CLI::Option* AddTime(CLI::App& command, const char* name, double& seconds, const char* help) {
  return command
      .add_option_function<std::string>(
          name,
          [name, &seconds](const std::string& text) {
            if (!ParseTime(text, seconds)) {
              throw CLI::ValidationError(
                  name, "'" + text + "' is no time; expected seconds, or forms like 500ms, 1m30s, 1:05.5");
            }
          },
          help)
      ->type_name("TIME");
}

void AddWords(CLI::App& command, std::vector<std::string>& words) {
  command.add_option("graph", words, "A launch line, in one piece or several words, or a graph file (.pqg)")
      ->required()
      ->type_name("LAUNCH|FILE.pqg");
}

void AddLimits(CLI::App& command, RunArguments& run) {
  command.add_option("--frames", run.frames, "End after N frames at each sink")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 53))
      ->type_name("N");
  AddTime(command, "--seconds", run.seconds, "End after this much of stream time");
  AddTime(command, "--from", run.from, "Leave out the stream up to this time");
  command.add_flag("--overwrite", run.overwrite, "Replace output files that are there");
}

// "--at TIME WHAT", any number of times.
void AddMoments(CLI::App& command, std::vector<RunMoment>& moments) {
  command
      .add_option_function<std::vector<std::string>>(
          "--at",
          [&moments](const std::vector<std::string>& words) {
            for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
              RunMoment moment{0, words[i + 1]};
              if (!ParseTime(words[i], moment.seconds)) {
                throw CLI::ValidationError(
                    "--at", "'" + words[i] +
                                "' is no time; expected --at 2.5s snap.SnapshotPin, or --at 3s switch.Enabled=false");
              }
              moments.push_back(std::move(moment));
            }
          },
          "At this stream time of a component, set a property of it or send to a pin of it: --at 3s "
          "switch.Enabled=false, "
          "--at 2.5s snap.SnapshotPin")
      ->type_name("TIME NAME.WHAT")
      ->type_size(2)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

int Refuse(const CLI::ParseError& error, int argc, char** argv, const std::vector<std::string>& commands) {
  std::string text = error.what();
  std::replace(text.begin(), text.end(), '\n', ' ');
  if (argc > 1 && argv[1][0] != '-' && std::find(commands.begin(), commands.end(), argv[1]) == commands.end()) {
    const std::string nearest = PQNearest(argv[1], commands);
    text = "unknown command '" + std::string(argv[1]) + "'" + (nearest.empty() ? "" : "; the nearest is " + nearest);
  } else if (argc < 2) {
    text = "no command";
  }
  PrintError("pantiq: " + text + "; pantiq --help shows the commands");
  return kExitRefused;
}

int Main(int argc, char** argv) {
  // A closed pipe is a failed write like any other: the files of the run are closed properly.
  std::signal(SIGPIPE, SIG_IGN);

  CLI::App program("Builds graphs of video components and runs them.", "pantiq");
  program.set_version_flag("--version", "pantiq " PANTIQ_VERSION);
  program.require_subcommand(1);
  program.footer(kExamples);
  program.get_formatter()->column_width(34);

  RunArguments run;
  PlayArguments play;
  bool json = false, codecs = false, devices = false, encoders = false;
  std::string class_name, effect_name, plugin, output;

  CLI::App* run_command = program.add_subcommand("run", "Run a graph");
  AddWords(*run_command, run.words);
  AddLimits(*run_command, run);
  AddMoments(*run_command, run.moments);
  run_command->add_flag("--realtime", run.realtime, "Generators keep their own rate");
  CLI::Option* json_flag = run_command->add_flag(
      "--json", run.json,
      "Events as JSON, one a line, on standard output (on standard error if a sink writes to the former)");
  run_command->add_flag("--quiet", run.quiet, "Say nothing but why the run failed")->excludes(json_flag);

  std::string in_file, out_file;
  CLI::App* convert = program.add_subcommand("convert", "Decode a file, run it through filters, encode it as another");
  convert->add_option("in", in_file, "The file to read")->required()->type_name("IN");
  convert->add_option("out", out_file, "The file to write; its ending says which container: asf, wmv, mkv, mp4, avi")
      ->required()
      ->type_name("OUT");
  convert->add_option("filters", run.words, "Filters, as in a launch line: TPQMirror MirrorType=mtBoth ! TPQGrayScale")
      ->type_name("FILTERS");
  AddLimits(*convert, run);
  AddMoments(*convert, run.moments);
  convert->add_flag("--json", run.json, "Events as JSON, one a line, on standard output");
  convert->add_flag("--quiet", run.quiet, "Say nothing but why it failed");

  CLI::App* check = program.add_subcommand("check", "Tell everything that is wrong with a graph, without running it");
  AddWords(*check, run.words);
  check->add_flag("--json", json, "Faults as JSON, one a line, on standard output");

  CLI::App* list = program.add_subcommand("list", "List the classes of components, or what the platform brings");
  CLI::Option* effects_option =
      list->add_option("--effects", effect_name, "The effects for TPQDMOEffect, each tried; or the settings of one")
          ->expected(0, 1)
          ->type_name("[NAME]");
  list->add_flag("--json", json, "As JSON");
  list->add_flag("--codecs", codecs, "List the codecs of TPQVideoCompressor that work here; they are tried, in seconds")
      ->excludes(effects_option);
  list->add_flag("--devices", devices, "List the devices that TPQDSVideoOut plays to, each tried")
      ->excludes(effects_option)
      ->excludes("--codecs");
  list->add_flag("--encoders", encoders, "List the encoders for TPQDSVideoCompressor, each tried, in seconds")
      ->excludes(effects_option)
      ->excludes("--codecs")
      ->excludes("--devices");

  CLI::App* inspect = program.add_subcommand("inspect", "Show the properties and pins of a class, or a plug-in");
  CLI::Option* class_option = inspect->add_option("class", class_name, "The class")->type_name("CLASS");
  CLI::Option* plugin_option =
      inspect->add_option("--plugin", plugin, "Show the parameters of a plug-in for TPQFreeFrame instead")
          ->excludes(class_option)
          ->type_name("FILE");
  inspect->add_flag("--json", json, "As JSON");

  CLI::App* save = program.add_subcommand("save", "Write a graph as a graph file");
  AddWords(*save, run.words);
  save->add_option("-o,--output", output, "The graph file; - is standard output")->required()->type_name("FILE.pqg");
  save->add_flag("--overwrite", run.overwrite, "Replace a file that is there");

  CLI::App* dot = program.add_subcommand("dot", "Write a graph in the language of Graphviz");
  AddWords(*dot, run.words);

  CLI::App* bench = program.add_subcommand("bench", "Measure frames per second and the time in each component");
  AddWords(*bench, run.words);
  AddLimits(*bench, run);
  bench->add_flag("--json", run.json, "As JSON");

  CLI::App* play_command = program.add_subcommand("play", "Play a file to screen and sound");
  play_command->add_option("file", play.file, "The file")->required()->type_name("FILE");
  play_command->add_option("--frames", play.frames, "End after N frames")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 53))
      ->type_name("N");
  AddTime(*play_command, "--seconds", play.seconds, "End after this much");
  AddTime(*play_command, "--from", play.from, "Begin at this time of the file");
  play_command->add_option("--video", play.video, "The device that shows it, as pantiq list --devices names it")
      ->type_name("DEVICE");
  play_command->add_option("--audio", play.audio, "The device that plays the sound")->type_name("DEVICE");
  play_command->add_flag("--mute", play.mute, "Without the sound");
  play_command->add_flag("--quiet", play.quiet, "Say nothing but why it failed");
  play_command->footer(
      "Keys on the terminal: space pauses, arrows jump by 5 seconds, . shows the next frame, q quits.");

  EditArguments edit;
  CLI::App* edit_command = program.add_subcommand("edit", "Draw the mask of a component in a graph file");
  edit_command->add_option("graph", edit.file, "The graph file")->required()->type_name("FILE.pqg");
  edit_command->add_option("component", edit.component, "The component's name in the graph")
      ->required()
      ->type_name("NAME");
  edit_command->add_option("--property", edit.property, "The property that holds the mask, if there are several")
      ->type_name("PROPERTY");
  edit_command->add_option("-o,--output", edit.output, "Write the graph to this file instead; - is standard output")
      ->type_name("FILE.pqg");
  edit_command->add_flag("--custom", edit.custom, "Put the drawn mask in use: ShapeType becomes stCustom");
  edit_command->add_flag("--terminal", edit.terminal, "On the terminal, without a window");
  edit_command->add_flag("--overwrite", edit.overwrite, "Replace the file of -o if it is there");
  edit_command->footer(
      "Keys: arrows move, space toggles, 0 and 1 set, Tab leads to the sizes and buttons, Return is OK, Esc is Cancel.");

  // What the program asks of itself in a process of its own.
  std::string trial_category, trial_device;
  CLI::App* trial = program.add_subcommand("try-device", "Try a device")->group("");
  trial->add_option("category", trial_category)->required()->check(CLI::IsMember({"video", "audio", "encoder"}));
  trial->add_option("device", trial_device)->required();

  CLI::App* kernels = program.add_subcommand("kernels", "Show which variant of each kernel this processor runs");
  kernels->add_flag("--json", json, "As JSON");

  std::vector<std::string> commands;
  for (const CLI::App* command : program.get_subcommands({})) commands.push_back(command->get_name());
  try {
    program.parse(argc, argv);
    if (*inspect && !*class_option && !*plugin_option) throw CLI::RequiredError("class");
  } catch (const CLI::Success& wish) {  // help and version
    std::ostringstream text;
    const int code = program.exit(wish, text, text);
    return code == 0 ? PrintResult(text.str()) : code;
  } catch (const CLI::ParseError& error) {
    return Refuse(error, argc, argv, commands);
  }

  if (*trial) return AnswerDeviceTrial(trial_category, trial_device);
  RegisterAll();
  RegisterSinks();
  if (*run_command) return RunGraph(run);
  if (*convert) return ConvertFile(in_file, out_file, run);
  if (*check) return CheckGraph(run.words, json);
  if (*play_command) return PlayFile(play);
  if (*edit_command) return EditGraph(edit);
  if (*list && codecs) return ListCodecs(json);
  if (*list && devices) return ListDevices(json);
  if (*list && encoders) return ListEncoders(json);
  if (*effects_option) return ListEffects(effect_name, json);
  if (*list) return ListClasses(json);
  if (*plugin_option) return InspectPlugin(plugin, json);
  if (*inspect) return InspectClass(class_name, json);
  if (*save) return SaveGraph(run.words, output, run.overwrite);
  if (*dot) return DrawGraph(run.words);
  if (*bench) return BenchGraph(run);
  return ListKernels(json);
}

}  // namespace
}  // namespace pantiq::app

namespace pantiq {

int RunProgram(int argc, char** argv) {
  try {
    return app::Main(argc, argv);
  } catch (const std::bad_alloc&) {
    app::PrintError("pantiq: not enough memory");
  } catch (const std::exception& error) {
    app::PrintError(std::string("pantiq: ") + error.what());
  }
  return app::kExitFailed;
}

}  // namespace pantiq
