// Reads the string members of JSON request texts.
#pragma once

#include <cstdint>

#include "base/records.h"

/// Copies the string member `key` of a JSON object text into `out`. The text must be NUL-terminated: it is parsed
/// up to its NUL, whatever `in->len` says. 0: `out` holds the value; 1: null argument, no JSON, no such member,
/// not a string, or it does not fit into `outSize` bytes with its NUL (`out` is then left as it was). Any thread.
uint32_t JsonGetValue(const JsonText* in, const char* key, char* out, uint32_t outSize);
