#pragma once

#include "store/io/ByteIo.h"
#include "store/las/laz/IntegerCoder.h"
#include "store/las/laz/Predictors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace VelBrx::Laz {

/// GPS times as up to four interleaved sequences, each predicted by its last step. The pointwise form says by
/// a symbol that a time is unchanged; in the layered form the point itself has said so already.
///
/// As with all coders here, `next` is what an encoder writes; a decoder ignores it.
template <bool kTellsUnchanged>
class GpsTimeCoder
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

    template <class Stream>
    void code(Stream& stream, uint64_t next)
    {
        // An encoder switches once at most; a damaged stream must not switch for ever.
        for (unsigned switches = 0; switches < kSequences; ++switches) {
            const bool done =
                _sequences[_current].step == 0 ? codeUnknownStep(stream, next) : codeMultiple(stream, next);
            if (done) return;
        }
    }

private:
    static constexpr unsigned kSequences = 4;
    static constexpr unsigned kMultiples = kTellsUnchanged ? 516 : 515;
    static constexpr unsigned kUnknownSteps = kTellsUnchanged ? 6 : 5;
    static constexpr unsigned kMaxExtremes = 3; ///< steps far from the last one until that is replaced

    /// \name Symbols of `_multiple`; between them the multiples themselves, negative ones from 501 on
    /// @{
    static constexpr unsigned kMuchLonger = 500;
    static constexpr unsigned kMuchEarlier = 510;
    static constexpr unsigned kUnchanged = 511;
    static constexpr unsigned kSwitches = kTellsUnchanged ? 512 : 511; ///< the first of four
    /// @}

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

        /// Whether 32 bits hold the difference to another time.
        bool reaches(uint64_t other) const
        {
            const auto difference = static_cast<int64_t>(other - time);
            return difference == static_cast<int32_t>(difference);
        }

        uint32_t differenceTo(uint64_t other) const { return static_cast<uint32_t>(other - time); }
    };

    /// How many sequences further the next one is from which `next` is reached, or 0 where a new one begins.
    unsigned chooseSwitch(uint64_t next) const
    {
        for (unsigned distance = 1; distance < kSequences; ++distance)
            if (_sequences[(_current + distance) % kSequences].reaches(next)) return distance;
        return 0;
    }

    unsigned chooseUnknownStep(uint64_t next) const
    {
        constexpr unsigned kFirst = kTellsUnchanged ? 1 : 0;
        const Sequence& sequence = _sequences[_current];
        if (kTellsUnchanged && next == sequence.time) return 0;
        return sequence.reaches(next) ? kFirst : kFirst + 1 + chooseSwitch(next);
    }

    unsigned chooseMultiple(uint64_t next) const
    {
        const Sequence& sequence = _sequences[_current];
        if (kTellsUnchanged && next == sequence.time) return kUnchanged;
        if (!sequence.reaches(next)) return kSwitches + chooseSwitch(next);
        const float ratio = static_cast<float>(static_cast<int32_t>(sequence.differenceTo(next))) /
                            static_cast<float>(static_cast<int32_t>(sequence.step));
        const double rounded = std::trunc(static_cast<double>(ratio) + (ratio >= 0 ? 0.5 : -0.5));
        if (rounded >= 2147483648.0) return kMuchEarlier; // as where the conversion to 32 bits overflows
        if (rounded >= kMuchLonger) return kMuchLonger;
        if (rounded >= 0) return static_cast<unsigned>(rounded);
        return rounded > -10 ? kMuchLonger + static_cast<unsigned>(-rounded) : kMuchEarlier;
    }

    /// False when only the current sequence was switched.
    template <class Stream>
    bool codeUnknownStep(Stream& stream, uint64_t next)
    {
        unsigned symbol = stream.symbol(_unknownStep, Stream::kEncodes ? chooseUnknownStep(next) : 0);
        if constexpr (kTellsUnchanged) {
            if (symbol == 0) return true;
            --symbol;
        }
        if (symbol == 0) {
            Sequence& sequence = _sequences[_current];
            sequence.step = _step.code(stream, 0, sequence.differenceTo(next), 0);
            sequence.add(sequence.step);
            sequence.extremes = 0;
            return true;
        }
        return switchSequence(stream, symbol - 1, next);
    }

    template <class Stream>
    bool codeMultiple(Stream& stream, uint64_t next)
    {
        const unsigned symbol = stream.symbol(_multiple, Stream::kEncodes ? chooseMultiple(next) : 0);
        Sequence& sequence = _sequences[_current];
        const uint32_t step = sequence.step;
        const auto codeStep = [&](uint32_t prediction, unsigned context) {
            return _step.code(stream, prediction, sequence.differenceTo(next), context);
        };
        if (symbol == 1) {
            sequence.add(codeStep(step, 1));
            sequence.extremes = 0;
        } else if (symbol == 0)
            sequence.addExtreme(codeStep(0, 7));
        else if (symbol < 10)
            sequence.add(codeStep(symbol * step, 2));
        else if (symbol < kMuchLonger)
            sequence.add(codeStep(symbol * step, 3));
        else if (symbol == kMuchLonger)
            sequence.addExtreme(codeStep(kMuchLonger * step, 4));
        else if (symbol < kMuchEarlier)
            sequence.add(codeStep((kMuchLonger - symbol) * step, 5));
        else if (symbol == kMuchEarlier)
            sequence.addExtreme(codeStep(0u - 10 * step, 6));
        else if (kTellsUnchanged && symbol == kUnchanged)
            return true;
        else
            return switchSequence(stream, symbol - kSwitches, next);
        return true;
    }

    /// Starts a new sequence (0) or goes to one of the others (1 to 3) and then returns false.
    template <class Stream>
    bool switchSequence(Stream& stream, unsigned distance, uint64_t next)
    {
        if (distance != 0) {
            _current = (_current + distance) % kSequences;
            return false;
        }
        _newest = (_newest + 1) % kSequences;
        const uint32_t upper =
            _step.code(stream, static_cast<uint32_t>(time() >> 32), static_cast<uint32_t>(next >> 32), 8);
        const uint32_t lower = stream.bits(32, static_cast<uint32_t>(next));
        _current = _newest;
        _sequences[_current] = Sequence();
        _sequences[_current].time = static_cast<uint64_t>(upper) << 32 | lower;
        return true;
    }

    SymbolModel<kMultiples> _multiple;
    SymbolModel<kUnknownSteps> _unknownStep;
    IntegerCoder<32, 9> _step;
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

    /// Replaces the red, green and blue words at `color`. True when anything but "grey as before" was coded.
    template <class Stream>
    bool code(Stream& stream, uint8_t* color, const uint8_t* next)
    {
        const unsigned changed = stream.symbol(_changed, Stream::kEncodes ? chooseChanged(color, next) : 0);
        const auto corrected = [&](unsigned byte, int prediction) {
            const auto predicted = static_cast<unsigned>(clampToByte(prediction));
            return addBytes(stream.symbol(_bytes[byte], addBytes(next[byte], 0u - predicted)), predicted);
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
        return changed != 0;
    }

private:
    static constexpr unsigned kNotGrey = 64;

    static unsigned chooseChanged(const uint8_t* color, const uint8_t* next)
    {
        unsigned changed = 0;
        for (unsigned byte = 0; byte < kSize; ++byte)
            if (color[byte] != next[byte]) changed |= 1u << byte;
        const bool isGrey = std::equal(next, next + 2, next + 2) && std::equal(next, next + 2, next + 4);
        return isGrey ? changed : changed | kNotGrey;
    }

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

    /// True when the word changed.
    template <class Stream>
    bool code(Stream& stream, uint8_t* word, const uint8_t* next)
    {
        const unsigned choice = (word[0] != next[0] ? 1u : 0u) | (word[1] != next[1] ? 2u : 0u);
        const unsigned changed = stream.symbol(_changed, choice);
        for (unsigned byte = 0; byte < 2; ++byte)
            if (changed & 1u << byte)
                word[byte] =
                    addBytes(word[byte], stream.symbol(_bytes[byte], addBytes(next[byte], 0u - word[byte])));
        return changed != 0;
    }

private:
    SymbolModel<4> _changed;
    SymbolModel<256> _bytes[2];
};

/// A wave packet record. Besides the last record its predictions need how the last offset was coded.
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

    template <class Stream>
    void code(Stream& stream, uint8_t* packet, const uint8_t* next)
    {
        const uint8_t descriptor = next[0];
        const auto nextOffset = loadLe<uint64_t>(next + kOffsetAt);
        packet[0] = static_cast<uint8_t>(stream.symbol(_descriptor, descriptor));
        const auto packetSize = loadLe<uint32_t>(packet + kPacketSizeAt);
        const auto lastOffset = loadLe<uint64_t>(packet + kOffsetAt);
        storeLe(packet + kOffsetAt, codeOffset(stream, lastOffset, packetSize, nextOffset));
        const auto codeByLast = [&](auto& model, size_t at, unsigned context) {
            const auto last = loadLe<uint32_t>(packet + at);
            storeLe(packet + at, model.code(stream, last, loadLe<uint32_t>(next + at), context));
        };
        codeByLast(_packetSize, kPacketSizeAt, 0);
        codeByLast(_returnPoint, kReturnPointAt, 0);
        for (unsigned axis = 0; axis < 3; ++axis)
            codeByLast(_direction, kDirectionAt + 4 * axis, axis);
    }

private:
    static constexpr size_t kOffsetAt = 1;
    static constexpr size_t kPacketSizeAt = 9;
    static constexpr size_t kReturnPointAt = 13;
    static constexpr size_t kDirectionAt = 17;

    enum OffsetKind : unsigned
    {
        kSame,
        kBehindLastPacket,
        kStep,
        kWhole
    };

    static unsigned chooseKind(uint64_t last, uint32_t lastPacketSize, uint64_t next)
    {
        const auto step = static_cast<int64_t>(next - last);
        if (step == 0) return kSame;
        if (step != static_cast<int32_t>(step)) return kWhole;
        return step == int64_t{lastPacketSize} ? kBehindLastPacket : kStep;
    }

    template <class Stream>
    uint64_t codeOffset(Stream& stream, uint64_t last, uint32_t lastPacketSize, uint64_t next)
    {
        _lastKind = stream.symbol(_offsetKind[_lastKind],
                                  Stream::kEncodes ? chooseKind(last, lastPacketSize, next) : 0);
        switch (_lastKind) {
        case kSame:
            return last;
        case kBehindLastPacket:
            return last + lastPacketSize;
        case kStep:
            _lastStep = _offsetStep.code(stream, _lastStep, static_cast<uint32_t>(next - last));
            return last + static_cast<uint64_t>(int64_t{static_cast<int32_t>(_lastStep)});
        default:
            return stream.bits64(next);
        }
    }

    SymbolModel<256> _descriptor;
    std::array<SymbolModel<4>, 4> _offsetKind;
    IntegerCoder<32, 1> _offsetStep;
    IntegerCoder<32, 1> _packetSize;
    IntegerCoder<32, 1> _returnPoint;
    IntegerCoder<32, 3> _direction;
    uint32_t _lastStep = 0;
    unsigned _lastKind = 0;
};

} // namespace VelBrx::Laz
