// SPDX-License-Identifier: Apache-2.0
// TOVIX_API marks what the shared libraries export. Valid C11 and C++.
#pragma once

#define TOVIX_API __attribute__((visibility("default")))
