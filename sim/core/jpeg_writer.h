// Writes small but genuine baseline JPEG images: a mosaic of flat 8x8
// colour blocks, so that photo tools on the host can decode what they pull.
#pragma once

#include <cstdint>
#include <string>

namespace zsim {

std::string makeMosaicJpeg(int width, int height, uint32_t seed);

}  // namespace zsim
