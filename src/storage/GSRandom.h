// GSRandom.h - the framework's small random number generator.
//
// A linear congruential generator over one process-wide 32-bit state (state * 1103515245 +
// 12345, starting from 4385737); each call gives the new state shifted right by one bit, 31
// significant bits. Deterministic on purpose (temporary names are checked for existence, not
// trusted to be unpredictable); safe to call from several threads.
#pragma once

unsigned GSRandom32();
