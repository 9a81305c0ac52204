#pragma once

#include "kernels/kernel_table.h"

/// The AVX2 kernels; each counts its operations in operationsDone. One thread at a time.
const vsp::KernelTable& countedKernels();
