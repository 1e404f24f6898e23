#include "store/journal/JournalFile.h"

#include "store/StoreHead.h"
#include "store/io/Crc32c.h"
#include "store/io/OutputFile.h"
#include "store/io/TemporaryFile.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx::Journal {

namespace {

std::string temporaryFolder()
{
    const char* const folder = std::getenv("TMPDIR");
    return folder && *folder ? folder : "/tmp";
}

/// Whether the store has a journal that was written when it was built and has not its name yet.
bool hasRebuilt(const std::string& store)
{
    const std::string path = journalPath(rebuiltStore(store));
    FileReader journal;
    Unit bytes;
    FileHeader header;
    if (access(path.c_str(), F_OK) != 0 || !journal.open(path) ||
        !journal.read(0, bytes.data(), bytes.size()) || !decodeHeader(bytes, header))
        return false;
    FileReader file;
    StoreHead head;
    StoreIndex index;
    return readStore(store, file, head, index) && head.header.storeId == header.storeId &&
           head.header.pointCount == header.pointCount;
}

} // namespace

std::string rebuiltStore(const std::string& store)
{
    return store + ".new";
}

Status settleRebuilt(const std::string& store)
{
    if (!hasRebuilt(store)) return {};
    const std::string path = journalPath(store);
    if (rename(journalPath(rebuiltStore(store)).c_str(), path.c_str()) != 0 &&
        errno != ENOENT) // somebody else did
        return systemFailure(path + ": cannot be given its name", errno);
    syncFolder(folderOf(path));
    return {};
}

JournalFile::JournalFile(const std::string& store, JournalPlace place)
    : _place(place), _store(store),
      _path(place == JournalPlace::TEMPORARY ? store + ": its temporary journal in " + temporaryFolder()
                                             : journalPath(store))
{
}

Status JournalFile::open(Access access)
{
    if (_place == JournalPlace::TEMPORARY) return {}; // a new one is made with the first edit
    std::string path = _path;
    if (access == Access::READ && hasRebuilt(_store)) path = journalPath(rebuiltStore(_store));
    if (access == Access::WRITE)
        if (Status settled = settleRebuilt(_store); !settled) return settled;
    const int descriptor =
        ::open(path.c_str(), (access == Access::WRITE ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (descriptor >= 0) return take(descriptor, access);
    return errno == ENOENT ? Status() : systemFailure(_path + ": cannot be opened", errno);
}

Status JournalFile::take(int descriptor, Access access)
{
    _file.take(descriptor, _path);
    struct stat status
    {
    };
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return Status::failure(_path + ": is not a regular file; move it away to edit the store");
    if (access == Access::WRITE)
        if (Status locked = lock(); !locked) return locked;
    fstat(descriptor, &status); // whoever had the lock may have written
    _size = static_cast<uint64_t>(status.st_size);
    return _chain.read(_file, _size).of(_path);
}

Status JournalFile::visitEntries(const JournalChain::Visitor& visit) const
{
    return JournalChain().read(_file, _chain.end(), visit).of(_path);
}

Status JournalFile::lock() const
{
    if (flock(_file.descriptor(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return {};
    return Status::failure(_path + ": another program writes its edits into it; have the store closed there",
                           Status::Kind::IN_USE);
}

Status JournalFile::createTemporary(const FileHeader& header)
{
    if (int descriptor = -1; _file.descriptor() < 0) {
        if (Status status = openTemporaryFile(temporaryFolder(), descriptor); !status) return status;
        _file.take(descriptor, _path);
    }
    const Unit bytes = encodeHeader(header);
    if (Status status = _file.write(0, bytes.data(), bytes.size()); !status) return status;
    _size = bytes.size();
    _chain.begin(header);
    return {};
}

Status JournalFile::create(const FileHeader& header)
{
    if (_place == JournalPlace::TEMPORARY) return createTemporary(header);
    if (access(_path.c_str(), F_OK) == 0)
        return Status::failure(_path + ": was made by another program meanwhile; open the store again");
    OutputFile output;
    const Unit bytes = encodeHeader(header);
    Status status = output.create(_path, false, 0);
    if (status) status = output.write(0, bytes.data(), bytes.size());
    if (status) status = output.commit();
    if (status) status = open(Access::WRITE);
    return status;
}

Status JournalFile::checkStore(uint64_t storeId, uint64_t pointCount) const
{
    const FileHeader& header = _chain.header();
    if (header.storeId == storeId && header.pointCount == pointCount) return {};
    return Status::failure(_path + ": is the journal of another store; put its store back, or move it away");
}

Status JournalFile::sync()
{
    return _place == JournalPlace::TEMPORARY ? Status() : _file.sync();
}

/// Whether the journal's name leads to the file that is open.
Status JournalFile::checkNamed() const
{
    if (_place == JournalPlace::TEMPORARY) return {};
    struct stat opened
    {
    };
    struct stat named
    {
    };
    if (fstat(_file.descriptor(), &opened) == 0 && stat(_path.c_str(), &named) == 0 &&
        opened.st_dev == named.st_dev && opened.st_ino == named.st_ino)
        return {};
    return Status::failure(_path + ": was moved, replaced or removed; put it back, or open the store again");
}

Status JournalFile::begin(EntryHead head, const std::string& author, const std::string& operation)
{
    if (!_usable) return _usable;
    if (Status status = checkNamed(); !status) return status;
    if (operation.size() > kMostOperation)
        return Status::failure(_path + ": an operation of more than 16 MiB cannot be written down");
    const std::string text = author.substr(0, kMostAuthor) + operation;
    head.number = _chain.lastNumber() + (head.kind == Kind::MARK ? 0 : 1);
    if (head.time == 0) head.time = editTimeNow();
    head.authorLength = static_cast<uint32_t>(text.size() - operation.size());
    head.operationLength = static_cast<uint32_t>(operation.size());
    head.textChecksum = crc32c(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    head.runsLength = 0;
    _head = head;
    const Status status = _file.write(_chain.end() + kUnit, text.data(), text.size());
    if (!status) cancel();
    return status;
}

Status JournalFile::append(const std::vector<uint8_t>& block)
{
    const uint64_t position = _chain.end() + kUnit + _head.textLength() + _head.runsLength;
    _head.runsLength += block.size();
    return _file.write(position, block.data(), block.size());
}

/// A failure takes away what was written of the entry. Where that fails too nobody can tell what the disk
/// has, and nothing more is written.
void JournalFile::cancel()
{
    Status status = _file.cut(_chain.end());
    if (status) status = sync();
    if (!status && _usable) _usable = status;
}

/// Takes the entry, which is on the disk, into the chain; an entry that nobody knows of may not stay there.
Status JournalFile::addToChain()
{
    try {
        return _chain.add(_head).of(_path);
    } catch (const std::bad_alloc&) {
        cancel();
        throw;
    }
}

Status JournalFile::finish(uint64_t points)
{
    _head.points = points;
    const uint64_t start = _chain.end();
    const Unit bytes = encodeHead(_head);
    Status status = _file.cut(start + _head.size()); // the zeros behind it
    if (status) status = _file.write(start, bytes.data(), bytes.size());
    if (status) status = sync();
    if (status) status = addToChain();
    if (status)
        _size = _chain.end();
    else
        cancel();
    return status;
}

Status JournalFile::write(const EntryHead& head, const std::string& author, const std::string& operation)
{
    const Status begun = begin(head, author, operation);
    return begun ? finish(0) : begun;
}

Status JournalFile::mark()
{
    return write(EntryHead(), std::string());
}

Status JournalFile::readRuns(uint64_t change, EntryHead& head, const RunsVisitor& visit) const
{
    const uint64_t position = _chain.entry(change).position;
    Status status = readHead(_file, position, head);
    if (status) status = Journal::readRuns(_file, head, position, _chain.header().pointCount, visit);
    if (status || status.kind() != Status::Kind::DAMAGED) return status;
    return Status::failure(_path + ": edit " + std::to_string(change) + ": " + status.message() +
                               "; restore the journal from a copy, or move it away to edit without it",
                           Status::Kind::DAMAGED);
}

Status JournalFile::readRuns(uint64_t change, const RunsVisitor& visit) const
{
    EntryHead head;
    return readRuns(change, head, visit);
}

bool JournalFile::hasHeadBehind(uint64_t position) const
{
    std::vector<uint8_t> bytes(kUnit << 13);
    for (; position + kUnit <= _size; position += bytes.size()) {
        bytes.resize(std::min<uint64_t>(bytes.size(), (_size - position) / kUnit * kUnit));
        if (!_file.read(position, bytes.data(), bytes.size())) return true;
        for (size_t place = 0; place < bytes.size(); place += kUnit) {
            Unit unit;
            std::copy_n(&bytes[place], kUnit, unit.begin());
            EntryHead head;
            const uint64_t torn = _chain.lastNumber() + 1;
            if (decodeHead(unit, head) && head.number >= torn + (head.kind != Kind::MARK)) return true;
        }
    }
    return false;
}

Status JournalFile::cutTail()
{
    const uint64_t last = _chain.lastNumber();
    if (last >= _chain.firstPending() && _chain.entry(last).kind == Kind::CHANGE) {
        const Status whole = readRuns(last, [](const std::vector<ChangeRun>&) { return Status(); });
        if (whole.kind() == Status::Kind::DAMAGED) _chain.dropLast();
    }
    if (tailLength() == 0) return {};
    if (hasHeadBehind(_chain.end() + kUnit))
        return Status::failure(_path + ": is damaged at byte " + std::to_string(_chain.end()) +
                                   ", and edits follow; restore it from a copy, or move it away to edit "
                                   "without it",
                               Status::Kind::DAMAGED);
    Status status = _file.cut(_chain.end());
    if (status) status = sync();
    if (status) _size = _chain.end();
    return status;
}

} // namespace VelBrx::Journal
