#pragma once

namespace VelBrx::Sample {

class Scene;

/// Puts village, plants, cars and power line on the scene's landscape.
void furnish(Scene& scene);

} // namespace VelBrx::Sample
