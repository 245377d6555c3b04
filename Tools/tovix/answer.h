// SPDX-License-Identifier: Apache-2.0
// The answer of a command, on standard output.
#pragma once

/// What was printed so far must have arrived, unless the reader has left, who has seen enough. Throws Failure.
void flush_answer();
