// What the shared library shows to its users; everything else stays hidden.
#pragma once

#define UMBRA_API __attribute__((visibility("default")))
