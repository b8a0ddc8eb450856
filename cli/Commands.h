#pragma once
// The commands of `korv`, one family per source file; each takes the
// arguments after its name and returns the exit status.
namespace korv::cli {

// FileCommands.cpp
int info(int argc, char** argv);
int render(int argc, char** argv);
int convert(int argc, char** argv);
int newDocument(int argc, char** argv);
int demo(int argc, char** argv);

// PaintCommands.cpp
int brushes(int argc, char** argv);
int paint(int argc, char** argv);

// VectorCommands.cpp
int add(int argc, char** argv);
int fonts(int argc, char** argv);

} // namespace korv::cli
