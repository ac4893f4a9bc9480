// Marks what the client library shows to its users; everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(NOX_CLIENT_BUILDING)
#define NOX_CLIENT_EXPORT __declspec(dllexport)
#else
#define NOX_CLIENT_EXPORT __declspec(dllimport)
#endif
#else
#define NOX_CLIENT_EXPORT __attribute__((visibility("default")))
#endif
