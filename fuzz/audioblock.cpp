// Audio messages as the recorder of the audio example reads them.

#include "fuzz.h"

#include "audioblock.h"

#include <vector>

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    AudioBlock block;
    if (!readAudioBlock(data, size, block).empty())
        return 0;
    FUZZ_CHECK(block.rate > 0 && block.channels > 0);
    FUZZ_CHECK(block.samples + block.frames * block.channels * 2 == data + size);
    // All of it can be read.
    const std::vector<uint8_t> samples(block.samples, data + size);
    FUZZ_CHECK(samples.size() == block.frames * block.channels * 2);
    return 0;
}
