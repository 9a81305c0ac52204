// Sample formats on both sides of the border.
#pragma once

#include <cstdint>

#include <velora/vsp.h>

#include "kernels/kernel_table.h"

namespace vsp {

/// Between the caller's format and 16 bits; 16-bit audio isn't copied.
void samplesTo16(const KernelTable& kernels, int16_t* out, const void* in, int samples,
                 Velora_BitDepth_T depth);
void samplesFrom16(const KernelTable& kernels, void* out, const int16_t* in, int samples,
                   Velora_BitDepth_T depth);

/// Between the caller's format and Q4: the same as by way of 16 bits.
void samplesToQ4(const KernelTable& kernels, int32_t* out, const void* in, int samples,
                 Velora_BitDepth_T depth);
void samplesFromQ4(const KernelTable& kernels, void* out, const int32_t* in, int samples,
                   Velora_BitDepth_T depth);

} // namespace vsp
