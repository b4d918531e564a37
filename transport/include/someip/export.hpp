#pragma once

// The transport library is built with hidden visibility: only what is marked here is its interface.
#define KOV_SOMEIP_EXPORT __attribute__((visibility("default")))
