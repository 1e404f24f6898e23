#pragma once

#include "viewer/files/FolderReader.h"

#include <set>
#include <string>
#include <vector>

/// A window in which people choose files, by mouse or by keys: the arrows move, Enter opens a folder or
/// chooses, Backspace goes up, letters narrow the list or name a path, Escape gives up.
///
/// Threads: the viewer's, in a part of `Gui`; folders are read on a thread of their own.
class FileDialog
{
public:
    enum Kind
    {
        OPEN, ///< files that are there, one or several, or a folder
        SAVE  ///< the name of one
    };

    /// `endings`: of the names that are listed, such as ".las", lower case. `name`: what stands in the field.
    FileDialog(Kind kind, const std::string& title, std::vector<std::string> endings);

    /// Begins to ask. An empty folder is the working folder.
    void ask(const std::string& folder, const std::string& name = "");

    bool isAsking() const { return _asks; }

    /// A folder is being read: draw frames.
    bool isReading() const { return _asks && !_reader.isRead(); }

    /// The folder on show.
    const std::string& folder() const { return _folder; }

    /// Draws it; the paths that were chosen, once. Nothing while it does not ask.
    std::vector<std::string> draw();

private:
    using Entry = FolderReader::Entry;

    void goTo(const std::string& folder) { _next = folder; }
    void show(const std::string& folder);
    std::string parent() const;
    void drawFolder();
    void drawList(const std::vector<const Entry*>& rows);
    void drawRow(const Entry& entry);
    void drawField();
    void moveByKeys(const std::vector<const Entry*>& rows);
    void accept();
    void enter(const Entry& entry);
    void acceptPath(const std::string& path);
    std::vector<const Entry*> rows();

    const Kind _kind;
    const std::string _title;
    const std::vector<std::string> _endings;
    FolderReader _reader;
    bool _asks = false;
    bool _begins = false;
    std::string _folder;
    std::string _next; ///< folder to show from the next frame on; empty for the same
    std::string _typed;
    std::string _problem;
    std::set<std::string> _marked; ///< names that were clicked with Ctrl held
    std::string _current;          ///< name of the row that the keys are at
    bool _scrolls = false;         ///< to the current row
    std::vector<std::string> _chosen;
};
