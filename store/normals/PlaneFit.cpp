#include <VelBrx/PlaneFit.h>

#include <Eigen/Eigenvalues>

namespace VelBrx {

namespace {

/// Part of the largest eigenvalue up to which another counts as none. Coordinates are whole steps, so that a
/// real extent across a line is far larger.
constexpr double kNoExtent = 1e-12;

Eigen::Vector3d upwards(const Eigen::Vector3d& normal)
{
    for (int axis : {2, 0, 1})
        if (normal[axis] != 0) return normal[axis] < 0 ? Eigen::Vector3d(-normal) : normal;
    return Eigen::Vector3d::UnitZ();
}

/// The direction across a line that points upwards most.
Eigen::Vector3d acrossLine(const Eigen::Vector3d& line)
{
    constexpr double kVertical = 1e-9;
    const Eigen::Vector3d across = Eigen::Vector3d::UnitZ() - line.z() * line;
    return across.norm() > kVertical ? Eigen::Vector3d(across.normalized()) : Eigen::Vector3d::UnitX();
}

Eigen::Vector3d normalOf(const Eigen::Matrix3d& covariance)
{
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver;
    solver.computeDirect(covariance);
    const Eigen::Vector3d& extents = solver.eigenvalues(); // ascending
    if (!(extents[2] > 0)) return Eigen::Vector3d::UnitZ();
    if (extents[1] <= kNoExtent * extents[2]) return acrossLine(solver.eigenvectors().col(2));
    return upwards(solver.eigenvectors().col(0));
}

} // namespace

std::array<float, 3> planeNormal(const Position* const* positions, size_t count)
{
    const Position& origin = *positions[0]; // sums stay small and exact around it
    double mean[3] = {0, 0, 0};
    for (size_t i = 0; i < count; ++i)
        for (size_t axis = 0; axis < 3; ++axis)
            mean[axis] += (*positions[i])[axis] - origin[axis];
    for (double& sum : mean)
        sum /= static_cast<double>(count);
    double xx = 0, xy = 0, xz = 0, yy = 0, yz = 0, zz = 0;
    for (size_t i = 0; i < count; ++i) {
        const Position& p = *positions[i];
        const double x = p[0] - origin[0] - mean[0];
        const double y = p[1] - origin[1] - mean[1];
        const double z = p[2] - origin[2] - mean[2];
        xx += x * x;
        xy += x * y;
        xz += x * z;
        yy += y * y;
        yz += y * z;
        zz += z * z;
    }
    Eigen::Matrix3d covariance;
    covariance << xx, xy, xz, xy, yy, yz, xz, yz, zz;
    const Eigen::Vector3f normal = normalOf(covariance).cast<float>();
    return {normal[0], normal[1], normal[2]};
}

} // namespace VelBrx
