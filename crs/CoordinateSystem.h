#pragma once

#include <VelBrx/ProjectionRecords.h>
#include <VelBrx/Status.h>

#include <optional>
#include <string>

/// A coordinate system of points: what people call it, its units, and whether another one is the same.
///
/// A value; any thread may use it, also at the same time as others.
class CoordinateSystem
{
public:
    struct Unit
    {
        std::string name;   ///< "metre", "US survey foot", "degree"
        std::string symbol; ///< "m", "ft", "US ft"; the name where there is none
        double size = 0;    ///< metres, or radians of an angle
        bool isAngle = false;
    };

    /// Of what a file states; empty `system` where it states nothing. Fails where that means no system that
    /// can be known; the message does not name the file.
    static VelBrx::Status read(const VelBrx::ProjectionRecords& records,
                               std::optional<CoordinateSystem>& system);

    /// By codes: "EPSG:25832", with a height system "EPSG:25832+7837". Fails where that is none.
    static VelBrx::Status find(const std::string& code, std::optional<CoordinateSystem>& system);

    const std::string& name() const { return _name; }

    /// "EPSG:25832"; empty where it has none.
    const std::string& code() const { return _code; }

    /// Whether x and y are longitude and latitude.
    bool isGeographic() const { return _horizontal.isAngle; }

    /// Of x and y.
    const Unit& horizontalUnit() const { return _horizontal; }

    /// Of z: as stated, or else that of x and y where it is a length; none in a geographic system without
    /// heights.
    const std::optional<Unit>& verticalUnit() const { return _vertical; }

    /// Whether coordinates mean the same place in both. Where one states no height system that of the other
    /// does not count, but units do.
    bool isSameAs(const CoordinateSystem& other) const;

    /// Name, code and units: "NAD83 / Oregon North (ft) (EPSG:2269), foot".
    std::string description() const;

    /// In the OGC WKT of LAS files; empty where it cannot be told so.
    std::string wkt() const;

private:
    class Reader;

    static VelBrx::Status readAnew(const VelBrx::ProjectionRecords& records,
                                   std::optional<CoordinateSystem>& system);

    std::string _name;
    std::string _code;
    Unit _horizontal;
    std::optional<Unit> _vertical;
    bool _statesHeights = false; ///< `_vertical` is stated, not taken from x and y
    std::string _horizontalText; ///< WKT of the part for x and y
    std::string _verticalText;   ///< WKT of the part for z; empty where there is none
    std::string _wholeText;      ///< WKT of both
};

/// What two files that state their systems in different words differ in, for people; empty where these are
/// one system. As `VelBrx::BuildOptions::compareSystems` wants it.
std::string differenceOfSystems(const VelBrx::ProjectionRecords& a, const VelBrx::ProjectionRecords& b);
