// Nearness stands for the distance from the eye along the view axis: it is greater for what is nearer, and a plane has
// nearness that changes evenly over the picture, so that it can be interpolated there.
bool isParallel()
{
    return gl_ProjectionMatrix[3][3] == 1.0;
}

float nearnessOf(float eyeZ)
{
    return isParallel() ? eyeZ : -1.0 / eyeZ;
}

float distanceOf(float nearness)
{
    return isParallel() ? -nearness : 1.0 / nearness;
}
