// Marks what the client library shows to its users; everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(NOX_CLIENT_BUILDING)
#define NOX_CLIENT_EXPORT __declspec(dllexport)
#else
#define NOX_CLIENT_EXPORT __declspec(dllimport)
#endif
#define NOX_CLIENT_HIDDEN
#else
#define NOX_CLIENT_EXPORT __attribute__((visibility("default")))
/// For what a class that is shown keeps to itself.
#define NOX_CLIENT_HIDDEN __attribute__((visibility("hidden")))
#endif
