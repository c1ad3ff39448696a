// Visibility of the library's public names. Everything else is hidden.
#pragma once
#define PQ_EXPORT __attribute__((visibility("default")))
