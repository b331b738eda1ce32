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
