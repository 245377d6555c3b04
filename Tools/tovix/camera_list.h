// SPDX-License-Identifier: Apache-2.0
// The cameras on the bus, and how a user names one of them.
#pragma once

#include <string>
#include <vector>

#include "tovixapi/tovixapi.h"

struct ListedCamera {
    tovix_version identity;
    std::string model;  // printable
};

/// The camera that `selector` names: by index, serial number, model, or the beginning of a model that no
/// other one has. An empty selector names the first. Throws Failure when it names none, or several.
const ListedCamera& select_camera(const std::vector<ListedCamera>& cameras, const std::string& selector);
