#pragma once

#include "viewer/measure/Measurement.h"

#include <VelBrx/Status.h>

#include <string>
#include <vector>

/// The measurements that were made, in their order.
///
/// Belongs to the viewer's thread.
class Measurements
{
public:
    struct Entry
    {
        unsigned number = 0; ///< for people, from 1; never given twice
        Measurement measurement;
        Units units;
        std::vector<Figure> figures;
        std::string remark; ///< why figures are missing

        /// "3 distance: length 12.345 m, level 12.000 m, ..."
        std::string text() const;
    };

    /// The number of the new entry.
    unsigned add(const Measurement& measurement, const Units& units);

    const std::vector<Entry>& all() const { return _entries; }

    /// Null where there is none with this number.
    const Entry* find(unsigned number) const;

    /// False where there is none with this number.
    bool remove(unsigned number);
    void clear() { _entries.clear(); }

    /// A line of each, for the clipboard.
    std::string text() const;

    /// A table with a row of each as comma separated values, in UTF-8, replaced in one piece. A file that
    /// exists stays unless `replace`. A failure names the file.
    VelBrx::Status writeCsv(const std::string& path, bool replace) const;

private:
    std::vector<Entry> _entries;
    unsigned _last = 0;
};
