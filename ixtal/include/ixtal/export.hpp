#pragma once

// The runtime is the host: its types keep default visibility so that a
// library built with -fvisibility=hidden still shares their type identity
// (exceptions thrown by the runtime are caught by type in the library and
// the other way round).
#define IXTAL_API __attribute__((visibility("default")))
