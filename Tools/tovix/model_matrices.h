// SPDX-License-Identifier: Apache-2.0
// The colour matrices of a camera model, without a camera.
#pragma once

#include <string>

#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

/// The model of that name. Throws Failure when there is none.
const camera_id& model_named(const std::string& name);
/// The model with that USB product ID. Throws Failure when there is none.
const camera_id& model_of_product(std::uint16_t product_id);

/// Give `vorm` the matrices of a model, as the library gives them to an open camera. Throws Failure.
void specify_matrices(CVorm& vorm, const camera_id& model);
