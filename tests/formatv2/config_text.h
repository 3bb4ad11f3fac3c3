// The configuration text builders, still reached here by bench/formatv2/process_bench.cpp.
#pragma once
#include "tests/support/config_text.h"
