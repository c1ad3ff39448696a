// The targets: each takes any bytes and returns. What it finds wrong is a crash, a report of a sanitizer, a hang, or a
// broken promise that it tells of before it ends the process.
#pragma once
#include <cstdint>
#include <span>

namespace pantiq::fuzz {

using Input = std::span<const std::uint8_t>;

void FuzzGraph(Input bytes);   // a graph of components that lives through random operations
void FuzzLaunch(Input bytes);  // launch lines
void FuzzFile(Input bytes);    // graph files
void FuzzStream(Input bytes);  // binary streams of properties: of a graph, and of one object
void FuzzStored(Input bytes);  // stored forms: masks, older streams' names, identifiers of effects, pictures
void FuzzPlugin(Input bytes);  // a plug-in that answers anything
void FuzzMedia(Input bytes);   // files of video and sound

struct Target {
  const char* name;  // of its corpus and, after "fuzz_", of its program
  void (*run)(Input bytes);
};

}  // namespace pantiq::fuzz
