#include "pantiq/program/PQProgram.h"

int main(int argc, char** argv) { return pantiq::RunProgram(argc, argv); }
