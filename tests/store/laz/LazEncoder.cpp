#include "tests/store/laz/LazEncoder.h"

#include <algorithm>
#include <numeric>

EncodedModel::EncodedModel(uint32_t n) : _counts(n, 1), _lows(n), _cycle(n)
{
    update();
    _cycle = _countdown = (n + 6) >> 1;
}

uint32_t EncodedModel::low(uint32_t symbol) const
{
    return _lows[symbol];
}

void EncodedModel::count(uint32_t symbol)
{
    ++_counts[symbol];
    if (--_countdown == 0) update();
}

void EncodedModel::update()
{
    _total += _cycle;
    if (_total > 32768) {
        for (uint32_t& count : _counts)
            count = (count + 1) / 2;
        _total = std::accumulate(_counts.begin(), _counts.end(), 0u);
    }
    const uint32_t scale = 0x80000000u / _total;
    uint32_t sum = 0;
    for (size_t k = 0; k < _counts.size(); ++k) {
        _lows[k] = (scale * sum) >> 16;
        sum += _counts[k];
    }
    _cycle = std::min(8 * (size() + 6), 5 * _cycle / 4);
    _countdown = _cycle;
}

/// Goes to a part of the interval. A base that wraps carries into the bytes before.
void LazEncoder::narrow(uint32_t low, uint32_t width)
{
    const uint32_t before = _base;
    _base += low;
    if (_base < before) {
        size_t k = _bytes.size();
        while (++_bytes[--k] == 0)
            continue;
    }
    for (_length = width; _length < 1u << 24; _length <<= 8) {
        _bytes.push_back(static_cast<uint8_t>(_base >> 24));
        _base <<= 8;
    }
}

void LazEncoder::bit(EncodedBitModel& model, unsigned value)
{
    const uint32_t split = model.zeroProbability * (_length >> 13);
    if (value)
        narrow(split, _length - split);
    else {
        narrow(0, split);
        ++model.zeros;
    }
    if (--model.countdown != 0) return;
    model.total += model.cycle;
    if (model.total > 8192) {
        model.total = (model.total + 1) / 2;
        model.zeros = (model.zeros + 1) / 2;
        if (model.zeros == model.total) ++model.total;
    }
    model.zeroProbability = (model.zeros * (0x80000000u / model.total)) >> 18;
    model.cycle = model.countdown = std::min(64u, 5 * model.cycle / 4);
}

void LazEncoder::symbol(EncodedModel& model, uint32_t value)
{
    const uint32_t unit = _length >> 15;
    const uint32_t low = model.low(value) * unit;
    const uint32_t high = value + 1 == model.size() ? _length : model.low(value + 1) * unit;
    narrow(low, high - low);
    model.count(value);
}

void LazEncoder::shortBits(unsigned n, uint32_t value)
{
    const uint32_t unit = _length >> n;
    narrow(value * unit, unit);
}

void LazEncoder::bits(unsigned n, uint32_t value)
{
    if (n <= 19) return shortBits(n, value);
    shortBits(16, value & 0xFFFF);
    shortBits(n - 16, value >> 16);
}

std::vector<uint8_t> LazEncoder::finish()
{
    for (unsigned shift : {24u, 16u, 8u, 0u})
        _bytes.push_back(static_cast<uint8_t>(_base >> shift));
    return _bytes;
}

IntegerEncoder::IntegerEncoder(unsigned bits, unsigned contexts)
    : _bits(bits), _widths(contexts, EncodedModel(bits + 1)), _corrections(1, EncodedModel(2))
{
    for (unsigned width = 1; width <= std::min(bits, 31u); ++width)
        _corrections.emplace_back(1u << std::min(width, 8u));
}

void IntegerEncoder::encode(LazEncoder& encoder, uint32_t prediction, uint32_t value, unsigned context)
{
    const int64_t range = int64_t{1} << _bits;
    int64_t correction = (int64_t{value} - int64_t{prediction}) % range;
    if (correction < -range / 2) correction += range;
    if (correction >= range / 2) correction -= range;
    unsigned width = 0; // the smallest for which -(2^w - 1) <= correction <= 2^w
    while (correction < -((int64_t{1} << width) - 1) || correction > int64_t{1} << width)
        ++width;
    encoder.symbol(_widths[context], width);
    if (width == 0) return encoder.bit(_sign, static_cast<unsigned>(correction));
    if (width == 32) return;
    const int64_t shifted = correction < 0 ? correction + (int64_t{1} << width) - 1 : correction - 1;
    if (width <= 8) return encoder.symbol(_corrections[width], static_cast<uint32_t>(shifted));
    encoder.symbol(_corrections[width], static_cast<uint32_t>(shifted >> (width - 8)));
    encoder.bits(width - 8, static_cast<uint32_t>(shifted) & ((1u << (width - 8)) - 1));
}
