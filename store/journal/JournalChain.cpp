#include "store/journal/JournalChain.h"

#include "store/io/Crc32c.h"

#include <algorithm>

namespace VelBrx::Journal {

namespace {

/// Reads small pieces one behind the other with few calls, and seldom more than is wanted.
class Window
{
public:
    Window(const DiskFile& file, uint64_t size) : _file(file), _size(size) {}

    /// `length` bytes at `position`, which lie in the file; null when they cannot be read.
    const uint8_t* bytes(uint64_t position, uint64_t length)
    {
        if (position < _start || position + length > _start + _bytes.size()) {
            _start = position;
            _bytes.resize(std::min(std::max(length, kLength), _size - position));
            if (!_file.read(position, _bytes.data(), _bytes.size())) {
                _bytes.clear();
                return nullptr;
            }
        }
        return _bytes.data() + (position - _start);
    }

private:
    static constexpr uint64_t kLength = 4096;

    const DiskFile& _file;
    const uint64_t _size;
    uint64_t _start = 0;
    std::vector<uint8_t> _bytes;
};

Status damagedAt(uint64_t position, const std::string& what)
{
    return Status::failure("is damaged at byte " + std::to_string(position) + ": " + what +
                               "; restore it from a copy, or move it away to edit without it",
                           Status::Kind::DAMAGED);
}

Unit unitAt(const uint8_t* bytes)
{
    Unit unit;
    std::copy_n(bytes, kUnit, unit.begin());
    return unit;
}

} // namespace

Status readHead(const DiskFile& file, uint64_t position, EntryHead& head)
{
    Unit bytes;
    if (!file.read(position, bytes.data(), kUnit)) return damagedAt(position, "it cannot be read");
    const Status decoded = decodeHead(bytes, head);
    return decoded ? decoded : damagedAt(position, decoded.message());
}

Status JournalChain::read(const DiskFile& file, uint64_t size, const Visitor& visit)
{
    Window window(file, size);
    const uint8_t* const first = size < kUnit ? nullptr : window.bytes(0, kUnit);
    if (!first) return Status::failure("is too short for a journal of edits", Status::Kind::DAMAGED);
    FileHeader header;
    if (Status status = decodeHeader(unitAt(first), header); !status) return status;
    begin(header);
    while (size - _end >= kUnit) {
        const uint64_t position = _end;
        const uint8_t* const bytes = window.bytes(position, kUnit);
        if (!bytes) return damagedAt(position, "it cannot be read");
        const Unit unit = unitAt(bytes);
        if (isBlank(unit)) break;
        EntryHead head;
        if (Status status = decodeHead(unit, head); !status) return damagedAt(position, status.message());
        if (head.size() > size - position) break;
        if (Status status = add(head); !status) return damagedAt(position, status.message());
        if (head.kind == Kind::MARK) continue;
        const uint8_t* const text = window.bytes(position + kUnit, head.textLength());
        if (!text) return damagedAt(position, "it cannot be read");
        if (crc32c(text, head.textLength()) != head.textChecksum) {
            if (size - _end >= kUnit) return damagedAt(position, "the text of an entry has a wrong checksum");
            dropLast(); // the head of the last entry may reach the disk before what is behind it
            break;
        }
        if (!visit) continue;
        const std::string both(reinterpret_cast<const char*>(text), head.textLength());
        visit(head, both.substr(0, head.authorLength), both.substr(head.authorLength), position);
    }
    return {};
}

void JournalChain::begin(const FileHeader& header)
{
    _header = header;
    _entries.clear();
    _state = _savedState = header.base;
    _marked = header.forgotten;
    _end = kUnit;
}

Status JournalChain::check(const EntryHead& head) const
{
    const auto wrong = [](const char* what) { return Status::failure(what, Status::Kind::DAMAGED); };
    const uint64_t next = lastNumber() + 1;
    if (head.number != (head.kind == Kind::MARK ? lastNumber() : next))
        return wrong("entries are missing, or two programs have written into it");
    const bool isChange = has(head.other) && entry(head.other).kind == Kind::CHANGE;
    if ((head.kind == Kind::CHANGE && head.other != _state) ||
        (head.kind == Kind::UNDO && (!isChange || head.other != _state)) ||
        (head.kind == Kind::REDO && (!isChange || entry(head.other).other != _state)))
        return wrong("an entry does not follow from those before");
    return head.points <= _header.pointCount ? Status() : wrong("an entry has more points than the store");
}

Status JournalChain::add(const EntryHead& head)
{
    if (Status status = check(head); !status) return status;
    uint64_t state = _state;
    if (head.kind == Kind::CHANGE) state = head.number;
    if (head.kind == Kind::UNDO) state = entry(head.other).other;
    if (head.kind == Kind::REDO) state = head.other;
    if (head.kind == Kind::MARK)
        _marked = lastNumber();
    else // may throw, and changes nothing then
        _entries.push_back({_end, head.other, state, head.kind, head.field, head.mask, head.deferred});
    _state = state;
    if (head.kind == Kind::SAVE) _savedState = _state;
    _end += head.size();
    return {};
}

uint64_t JournalChain::stateAfter(uint64_t number) const
{
    return has(number) ? entry(number).state : _header.base;
}

uint64_t JournalChain::savedStateAfter(uint64_t number) const
{
    for (; has(number); --number)
        if (entry(number).kind == Kind::SAVE) return entry(number).state;
    return _header.base;
}

bool JournalChain::isState(uint64_t number) const
{
    return number == _header.base || (has(number) && entry(number).kind == Kind::CHANGE);
}

/// A change has a greater number than the state that it follows: the greater of two states is never an
/// ancestor of the other.
std::vector<JournalChain::Step> JournalChain::path(uint64_t from, uint64_t to) const
{
    std::vector<Step> back;
    std::vector<Step> forth;
    while (from != to) {
        const bool isBack = from > to;
        uint64_t& later = isBack ? from : to;
        (isBack ? back : forth).push_back({later, !isBack});
        later = entry(later).other;
    }
    back.insert(back.end(), forth.rbegin(), forth.rend());
    return back;
}

std::vector<JournalChain::Step> JournalChain::unsavedPath(uint64_t from, uint64_t to) const
{
    std::vector<Step> steps = path(from, to);
    steps.erase(std::remove_if(steps.begin(), steps.end(),
                               [this](const Step& step) { return !entry(step.change).deferred; }),
                steps.end());
    return steps;
}

void JournalChain::dropLast()
{
    _end = _entries.back().position;
    _entries.pop_back();
    _state = stateAfter(lastNumber());
    _savedState = savedStateAfter(lastNumber());
}

} // namespace VelBrx::Journal
