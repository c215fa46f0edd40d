// SPDX-License-Identifier: Apache-2.0
// What many writers of one global registry do at once, and what a reader may see of it meanwhile.
//
// Each writer has instance records of its own, numbered from 0. It adds them all, then changes them
// all, then removes all but every fourth, always in the order of their numbers. So after any number
// of its updates there is exactly one list of its records that is right, and every list that a
// reader gets must be one of these: a list that mixes two moments is none of them.
#pragma once

namespace vrxtest {

enum class Progress { kSilent, kTold };

// Makes all updates of one writer. Prints "updates N failures M first 0xCODE"; with kTold also one
// line "N" after each update that has returned 0. 0 when nothing failed, else 1.
int runWriter(unsigned writer, unsigned count, Progress progress);

// The same by `writers` threads of this process, writers 0 to writers - 1. Prints their sum.
int runWriterThreads(unsigned writers, unsigned count);

// Lists the registry again and again until standard input has ended, and judges every list. Prints
// "scans N changes M": how many lists, and how many times one differed from the one before; the
// first finding, on standard error, ends it with 1.
int runWatcher(unsigned writers, unsigned count);

}  // namespace vrxtest
