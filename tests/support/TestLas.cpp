#include "tests/support/TestLas.h"

#include "store/io/ByteIo.h"

#include <algorithm>
#include <cstring>

using VelBrx::loadLe;
using VelBrx::storeLe;

namespace {

void append(std::vector<uint8_t>& bytes, const std::vector<uint8_t>& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

std::vector<uint8_t> vlrHead(const TestLas::Vlr& vlr, bool extended)
{
    std::vector<uint8_t> head(extended ? 60 : 54, 0);
    std::memcpy(&head[2], vlr.userId.data(), std::min<size_t>(vlr.userId.size(), 16));
    storeLe<uint16_t>(&head[18], vlr.recordId);
    if (extended)
        storeLe<uint64_t>(&head[20], vlr.data.size());
    else
        storeLe<uint16_t>(&head[20], static_cast<uint16_t>(vlr.data.size()));
    return head;
}

} // namespace

std::vector<uint8_t>& TestLas::addPoint(int32_t x, int32_t y, int32_t z)
{
    records.emplace_back(recordLength, uint8_t(0));
    storeLe(&records.back()[0], x);
    storeLe(&records.back()[4], y);
    storeLe(&records.back()[8], z);
    return records.back();
}

size_t TestLas::headerSize() const
{
    return versionMinor >= 4 ? 375 : versionMinor == 3 ? 235 : 227;
}

size_t TestLas::pointDataStart() const
{
    size_t start = headerSize() + gap.size();
    for (const Vlr& vlr : vlrs)
        start += 54 + vlr.data.size();
    return start;
}

std::vector<uint8_t> TestLas::bytes() const
{
    std::vector<uint8_t> file(headerSize(), 0);
    std::memcpy(file.data(), "LASF", 4);
    storeLe(&file[6], globalEncoding);
    file[24] = 1;
    file[25] = versionMinor;
    storeLe(&file[94], static_cast<uint16_t>(headerSize()));
    storeLe(&file[96], static_cast<uint32_t>(pointDataStart()));
    storeLe(&file[100], static_cast<uint32_t>(vlrs.size()));
    file[104] = pointFormat;
    storeLe(&file[105], recordLength);
    const bool isLong = versionMinor >= 4;
    if (!isLong) storeLe(&file[107], static_cast<uint32_t>(records.size()));
    if (isLong) storeLe(&file[247], uint64_t(records.size()));
    for (size_t axis = 0; axis < 3; ++axis) {
        storeLe(&file[131 + 8 * axis], scale[axis]);
        storeLe(&file[155 + 8 * axis], offset[axis]);
        double low = records.empty() ? 0 : 1e300;
        double high = records.empty() ? 0 : -1e300;
        for (const auto& record : records) {
            const double value = loadLe<int32_t>(&record[4 * axis]) * scale[axis] + offset[axis];
            low = std::min(low, value);
            high = std::max(high, value);
        }
        storeLe(&file[179 + 16 * axis], high);
        storeLe(&file[187 + 16 * axis], low);
    }
    for (const auto& record : records) {
        const unsigned returnNumber = record[14] & (pointFormat <= 5 ? 0x07 : 0x0F);
        if (returnNumber == 0) continue;
        uint8_t* const counter =
            isLong ? &file[255 + 8 * (returnNumber - 1)] : &file[111 + 4 * (returnNumber - 1)];
        if (isLong)
            storeLe(counter, loadLe<uint64_t>(counter) + 1);
        else if (returnNumber <= 5)
            storeLe(counter, loadLe<uint32_t>(counter) + 1);
    }
    for (const Vlr& vlr : vlrs) {
        append(file, vlrHead(vlr, false));
        append(file, vlr.data);
    }
    append(file, gap);
    for (const auto& record : records)
        append(file, record);
    if (!evlrs.empty()) {
        storeLe(&file[235], uint64_t(file.size()));
        storeLe(&file[243], static_cast<uint32_t>(evlrs.size()));
    }
    for (const Vlr& vlr : evlrs) {
        append(file, vlrHead(vlr, true));
        append(file, vlr.data);
    }
    return file;
}

TestLas::Vlr wktVlr(const std::string& text)
{
    return {"LASF_Projection", 2112, {text.begin(), text.end()}};
}
