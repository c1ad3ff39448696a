// The program pantiq with one class more.
#include "Skeleton.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/program/PQProgram.h"

int main(int argc, char** argv) {
  const pantiq::PQClassInfo* const mine[] = {&TSkeleton::Class()};
  pantiq::RegisterComponents(pantiq::kPantiqPage, mine);
  return pantiq::RunProgram(argc, argv);
}
