// Symbol visibility for the ptmatch library.
#pragma once

#if defined(_WIN32)
#if defined(PTMATCH_BUILDING)
#define PTMATCH_API __declspec(dllexport)
#else
#define PTMATCH_API __declspec(dllimport)
#endif
#else
#define PTMATCH_API __attribute__((visibility("default")))
#endif

// Keeps a class that the library declares inside an exported one (a private
// implementation) out of the shared library's exported symbols.
#if defined(_WIN32)
#define PTMATCH_LOCAL
#else
#define PTMATCH_LOCAL __attribute__((visibility("hidden")))
#endif
