// SPDX-License-Identifier: Apache-2.0
#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

bool ValidateDemosaicingMethod(unsigned int method) {
    switch (method) {
        case TOVIX_DEMOSAIC_NONE:
        case TOVIX_DEMOSAIC_NEAREST:
        case TOVIX_DEMOSAIC_EDGE:
        case TOVIX_DEMOSAIC_QUELT:
        case TOVIX_DEMOSAIC_FOUR_COLOUR: return true;
        default: return false;
    }
}

bool ValidateCorrectionMatrix(unsigned int selector) {
    return selector <= TOVIX_MATRIX_CUSTOM_ONLY;
}
