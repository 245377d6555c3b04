// SPDX-License-Identifier: Apache-2.0
#pragma once

/** Marks what the libraries export. They are built with hidden visibility, so nothing else is seen. */
#define TOVIX_API __attribute__((visibility("default")))
