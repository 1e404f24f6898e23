#pragma once

#include "tests/fuzz/StoreBytes.h"

#include <algorithm>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t largest);

/// Changes a store; of eight times seven with checksums that fit.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t largest, unsigned chance)
{
    size = LLVMFuzzerMutate(data, size, largest);
    if (chance % 8 == 0) return size;
    std::vector<uint8_t> store(data, data + size);
    fitStoreChecksums(store);
    std::copy(store.begin(), store.end(), data);
    return size;
}
