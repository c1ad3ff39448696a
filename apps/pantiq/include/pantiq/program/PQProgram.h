// The program pantiq as a function, for programs that bring components of their own: their classes are then known to launch
// lines, graph files and every command.
//
//   int main(int argc, char** argv) {
//     const pantiq::PQClassInfo* const mine[] = {&TMyFilter::Class()};
//     pantiq::RegisterComponents(pantiq::kPantiqPage, mine);
//     return pantiq::RunProgram(argc, argv);
//   }
#pragma once

namespace pantiq {

// Does what the command line says (docs/pantiq.md) and answers main's exit code; nothing is thrown. Registers the classes of
// the library and the sinks of the program. Prints, handles signals and may start its own executable again to try a device
// or a plug-in: call it once, from main.
int RunProgram(int argc, char** argv);

}  // namespace pantiq
