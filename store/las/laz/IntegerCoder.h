#pragma once

#include "store/las/laz/ArithmeticDecoder.h"
#include "store/las/laz/ArithmeticEncoder.h"

#include <array>

namespace VelBrx::Laz {

/// Codes integers of `kBits` bits as corrections of a prediction: first the width of the correction under a
/// model that the caller chooses, then its value under models that all share.
template <unsigned kBits>
class CorrectionCoder
{
public:
    using WidthModel = SymbolModel<kBits + 1>;

    void reset()
    {
        _sign = BitModel();
        _used = 0;
    }

    /// The value; of 8 and 16 bits the low bits count, the rest is zero.
    uint32_t decode(ArithmeticDecoder& stream, uint32_t prediction, WidthModel& widthModel)
    {
        ArithmeticDecoder decoder = stream; // a copy of its own stays in registers
        _width = decoder.evenSymbol(widthModel);
        const uint32_t value = prediction + correction(decoder);
        stream = decoder;
        if constexpr (kBits == 32)
            return value;
        else
            return value & ((1u << kBits) - 1);
    }

    /// Codes `value`, which has no more than `kBits` bits; a decoder ignores it. The result is the value.
    uint32_t code(ArithmeticDecoder& stream, uint32_t prediction, uint32_t, WidthModel& widthModel)
    {
        return decode(stream, prediction, widthModel);
    }

    uint32_t code(ArithmeticEncoder& stream, uint32_t prediction, uint32_t value, WidthModel& widthModel)
    {
        constexpr unsigned kUnusedBits = 32 - kBits;
        const auto correction = static_cast<int32_t>((value - prediction) << kUnusedBits) >> kUnusedBits;
        _width = widthOf(correction);
        stream.evenSymbol(widthModel, _width);
        encodeCorrection(stream, static_cast<uint32_t>(correction));
        return value;
    }

    /// Width of the last correction in bits, which others take as a context.
    unsigned width() const { return _width; }

private:
    static constexpr unsigned kSymbolBits = 8; ///< of a correction under a model; the rest are raw
    static constexpr unsigned kCorrections = kBits < 32 ? kBits : 31;

    [[gnu::always_inline]] uint32_t correction(ArithmeticDecoder& decoder)
    {
        if (_width == 0) return decoder.bit(_sign);
        if (_width == 32) return 1u << 31;
        uint32_t value = decoder.evenSymbol(correctionModel());
        if (_width > kSymbolBits) {
            const unsigned rawBits = _width - kSymbolBits;
            value = value << rawBits | decoder.bits(rawBits);
        }
        // The width leaves out what fewer bits would hold: [-(2^w - 1), -2^(w-1)] and [2^(w-1) + 1, 2^w].
        // Both signs are about as likely, so a branch would often be mispredicted.
        const uint32_t isNegative = (value >> (_width - 1)) ^ 1u;
        return value + 1 - (isNegative << _width);
    }

    static unsigned widthOf(int32_t correction)
    {
        const auto bits = static_cast<uint32_t>(correction);
        const uint32_t magnitude = correction <= 0 ? 0u - bits : bits - 1;
        return magnitude == 0 ? 0 : 32 - static_cast<unsigned>(__builtin_clz(magnitude));
    }

    void encodeCorrection(ArithmeticEncoder& encoder, uint32_t correction)
    {
        if (_width == 0) {
            encoder.bit(_sign, correction);
            return;
        }
        if (_width == 32) return;
        const bool isNegative = correction >> 31;
        const uint32_t value = isNegative ? correction + ((1u << _width) - 1) : correction - 1;
        const unsigned rawBits = _width > kSymbolBits ? _width - kSymbolBits : 0;
        encoder.evenSymbol(correctionModel(), value >> rawBits);
        if (rawBits > 0) encoder.bits(rawBits, value & ((1u << rawBits) - 1));
    }

    SymbolModel<256>& correctionModel()
    {
        SymbolModel<256>& model = _corrections[_width - 1];
        const uint32_t mark = 1u << (_width - 1);
        if (!(_used & mark)) {
            _used |= mark;
            model = kFreshCorrections[_width < kSymbolBits ? _width : kSymbolBits];
        }
        return model;
    }

    /// By width; the first is never used.
    static constexpr std::array<SymbolModel<256>, kSymbolBits + 1> kFreshCorrections = {
        SymbolModel<256>::fresh(2),  SymbolModel<256>::fresh(2),   SymbolModel<256>::fresh(4),
        SymbolModel<256>::fresh(8),  SymbolModel<256>::fresh(16),  SymbolModel<256>::fresh(32),
        SymbolModel<256>::fresh(64), SymbolModel<256>::fresh(128), SymbolModel<256>::fresh(256)};

    BitModel _sign;
    uint32_t _used = 0; ///< a bit for each of `_corrections` that has been set up in this chunk
    unsigned _width = 0;
    SymbolModel<256> _corrections[kCorrections];
};

/// Integers whose widths have one model for each context.
template <unsigned kBits, unsigned kContexts>
class IntegerCoder
{
public:
    void reset()
    {
        _widths.fill(kFreshModel<kBits + 1>);
        _corrections.reset();
    }

    uint32_t decode(ArithmeticDecoder& decoder, uint32_t prediction, unsigned context = 0)
    {
        return _corrections.decode(decoder, prediction, _widths[context]);
    }

    /// As `CorrectionCoder::code`.
    template <class Stream>
    uint32_t code(Stream& stream, uint32_t prediction, uint32_t value, unsigned context = 0)
    {
        return _corrections.code(stream, prediction, value, _widths[context]);
    }

    unsigned width() const { return _corrections.width(); }

private:
    std::array<SymbolModel<kBits + 1>, kContexts> _widths;
    CorrectionCoder<kBits> _corrections;
};

} // namespace VelBrx::Laz
