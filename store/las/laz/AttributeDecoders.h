#pragma once

#include "store/ByteIo.h"
#include "store/las/laz/IntegerDecoder.h"
#include "store/las/laz/Predictors.h"

#include <algorithm>
#include <array>

namespace VelBrx::Laz {

/// GPS times as up to four interleaved sequences, each predicted by its last step. The pointwise form tells
/// by a symbol that a time is unchanged; in the layered form the point itself has told already.
template <bool kTellsUnchanged>
class GpsTimeDecoder
{
public:
    void reset(uint64_t time)
    {
        _multiple = kFreshModel<kMultiples>;
        _unknownStep = kFreshModel<kUnknownSteps>;
        _step.reset();
        for (Sequence& sequence : _sequences)
            sequence = Sequence();
        _sequences[0].time = time;
        _current = _newest = 0;
    }

    /// The bit pattern of the time.
    uint64_t time() const { return _sequences[_current].time; }

    void decode(ArithmeticDecoder& decoder)
    {
        // An encoder switches once at most; a damaged stream must not switch for ever.
        for (unsigned switches = 0; switches < kSequences; ++switches) {
            const bool done =
                _sequences[_current].step == 0 ? decodeUnknownStep(decoder) : decodeMultiple(decoder);
            if (done) return;
        }
    }

private:
    static constexpr unsigned kSequences = 4;
    static constexpr unsigned kMultiples = kTellsUnchanged ? 516 : 515;
    static constexpr unsigned kUnknownSteps = kTellsUnchanged ? 6 : 5;
    static constexpr unsigned kMaxExtremes = 3; ///< steps far from the last one until that is replaced

    struct Sequence
    {
        uint64_t time = 0;
        uint32_t step = 0;
        uint32_t extremes = 0;

        void add(uint32_t difference)
        {
            time += static_cast<uint64_t>(int64_t{static_cast<int32_t>(difference)});
        }

        void addExtreme(uint32_t difference)
        {
            if (++extremes > kMaxExtremes) {
                step = difference;
                extremes = 0;
            }
            add(difference);
        }
    };

    /// False when only the current sequence was switched.
    bool decodeUnknownStep(ArithmeticDecoder& decoder)
    {
        unsigned symbol = decoder.symbol(_unknownStep);
        if constexpr (kTellsUnchanged) {
            if (symbol == 0) return true;
            --symbol;
        }
        if (symbol == 0) {
            Sequence& sequence = _sequences[_current];
            sequence.step = _step.decode(decoder, 0, 0);
            sequence.add(sequence.step);
            sequence.extremes = 0;
            return true;
        }
        return switchSequence(decoder, symbol - 1);
    }

    bool decodeMultiple(ArithmeticDecoder& decoder)
    {
        const unsigned symbol = decoder.symbol(_multiple);
        Sequence& sequence = _sequences[_current];
        const uint32_t step = sequence.step;
        if (symbol == 1) {
            sequence.add(_step.decode(decoder, step, 1));
            sequence.extremes = 0;
        } else if (symbol == 0)
            sequence.addExtreme(_step.decode(decoder, 0, 7));
        else if (symbol < 10)
            sequence.add(_step.decode(decoder, symbol * step, 2));
        else if (symbol < 500)
            sequence.add(_step.decode(decoder, symbol * step, 3));
        else if (symbol == 500)
            sequence.addExtreme(_step.decode(decoder, 500 * step, 4));
        else if (symbol < 510)
            sequence.add(_step.decode(decoder, (500u - symbol) * step, 5));
        else if (symbol == 510)
            sequence.addExtreme(_step.decode(decoder, 0u - 10 * step, 6));
        else if (kTellsUnchanged && symbol == 511)
            return true;
        else
            return switchSequence(decoder, symbol - (kTellsUnchanged ? 512 : 511));
        return true;
    }

    /// Starts a new sequence (0) or goes to one of the others (1 to 3) and then returns false.
    bool switchSequence(ArithmeticDecoder& decoder, unsigned distance)
    {
        if (distance != 0) {
            _current = (_current + distance) % kSequences;
            return false;
        }
        _newest = (_newest + 1) % kSequences;
        const uint32_t upper = _step.decode(decoder, static_cast<uint32_t>(time() >> 32), 8);
        const uint32_t lower = decoder.bits(32);
        _current = _newest;
        _sequences[_current] = Sequence();
        _sequences[_current].time = static_cast<uint64_t>(upper) << 32 | lower;
        return true;
    }

    SymbolModel<kMultiples> _multiple;
    SymbolModel<kUnknownSteps> _unknownStep;
    IntegerDecoder<32, 9> _step;
    Sequence _sequences[kSequences];
    unsigned _current = 0;
    unsigned _newest = 0;
};

/// A colour whose green and blue bytes follow the change of red.
class RgbModels
{
public:
    static constexpr size_t kSize = 6;

    void reset()
    {
        _changed = kFreshModel<128>;
        for (auto& model : _bytes)
            model = kFreshModel<256>;
    }

    /// Replaces the red, green and blue words at `color`.
    void decode(ArithmeticDecoder& decoder, uint8_t* color)
    {
        const unsigned changed = decoder.symbol(_changed);
        const auto corrected = [&](unsigned byte, int prediction) {
            return addBytes(decoder.symbol(_bytes[byte]), static_cast<unsigned>(clampToByte(prediction)));
        };
        uint8_t now[6];
        std::copy_n(color, 6, now);
        for (unsigned byte = 0; byte < 2; ++byte)
            if (changed & 1u << byte) now[byte] = corrected(byte, color[byte]);
        if (changed & kNotGrey) {
            for (unsigned byte = 0; byte < 2; ++byte) {
                const int red = now[byte] - color[byte];
                uint8_t& green = now[2 + byte];
                uint8_t& blue = now[4 + byte];
                if (changed & 4u << byte) green = corrected(2 + byte, red + green);
                const int mean = (red + green - color[2 + byte]) / 2;
                if (changed & 16u << byte) blue = corrected(4 + byte, mean + blue);
            }
        } else {
            now[2] = now[4] = now[0];
            now[3] = now[5] = now[1];
        }
        std::copy_n(now, 6, color);
    }

private:
    static constexpr unsigned kNotGrey = 64;

    SymbolModel<128> _changed;
    SymbolModel<256> _bytes[6]; ///< low and high byte of red, green, blue
};

/// A word next to a colour (near infrared) whose bytes are predicted by the last ones.
class WordModels
{
public:
    void reset()
    {
        _changed = kFreshModel<4>;
        for (auto& model : _bytes)
            model = kFreshModel<256>;
    }

    void decode(ArithmeticDecoder& decoder, uint8_t* word)
    {
        const unsigned changed = decoder.symbol(_changed);
        for (unsigned byte = 0; byte < 2; ++byte)
            if (changed & 1u << byte) word[byte] = addBytes(word[byte], decoder.symbol(_bytes[byte]));
    }

private:
    SymbolModel<4> _changed;
    SymbolModel<256> _bytes[2];
};

/// A wave packet record. Besides the last record its predictions need how the last offset was told.
class WavePacketModels
{
public:
    static constexpr size_t kSize = 29;

    void reset()
    {
        _descriptor = kFreshModel<256>;
        _offsetKind.fill(kFreshModel<4>);
        _offsetStep.reset();
        _packetSize.reset();
        _returnPoint.reset();
        _direction.reset();
        _lastStep = 0;
        _lastKind = 0;
    }

    void decode(ArithmeticDecoder& decoder, uint8_t* packet)
    {
        packet[0] = static_cast<uint8_t>(decoder.symbol(_descriptor));
        const auto packetSize = loadLe<uint32_t>(packet + kPacketSizeAt);
        storeLe(packet + kOffsetAt, decodeOffset(decoder, loadLe<uint64_t>(packet + kOffsetAt), packetSize));
        decodeByLast(decoder, _packetSize, packet + kPacketSizeAt, 0);
        decodeByLast(decoder, _returnPoint, packet + kReturnPointAt, 0);
        for (unsigned axis = 0; axis < 3; ++axis)
            decodeByLast(decoder, _direction, packet + kDirectionAt + 4 * axis, axis);
    }

private:
    static constexpr size_t kOffsetAt = 1;
    static constexpr size_t kPacketSizeAt = 9;
    static constexpr size_t kReturnPointAt = 13;
    static constexpr size_t kDirectionAt = 17;

    uint64_t decodeOffset(ArithmeticDecoder& decoder, uint64_t last, uint32_t lastPacketSize)
    {
        _lastKind = decoder.symbol(_offsetKind[_lastKind]);
        switch (_lastKind) {
        case 0:
            return last;
        case 1:
            return last + lastPacketSize;
        case 2:
            _lastStep = _offsetStep.decode(decoder, _lastStep);
            return last + static_cast<uint64_t>(int64_t{static_cast<int32_t>(_lastStep)});
        default:
            return decoder.bits64();
        }
    }

    template <typename Decoder>
    static void decodeByLast(ArithmeticDecoder& decoder, Decoder& model, uint8_t* field, unsigned context)
    {
        storeLe(field, model.decode(decoder, loadLe<uint32_t>(field), context));
    }

    SymbolModel<256> _descriptor;
    std::array<SymbolModel<4>, 4> _offsetKind;
    IntegerDecoder<32, 1> _offsetStep;
    IntegerDecoder<32, 1> _packetSize;
    IntegerDecoder<32, 1> _returnPoint;
    IntegerDecoder<32, 3> _direction;
    uint32_t _lastStep = 0;
    unsigned _lastKind = 0;
};

} // namespace VelBrx::Laz
