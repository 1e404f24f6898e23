// The vertex stage of every point program. A colour mode includes this file, defines modeColor() after it,
// and may define before it:
//   SELECTS_BEFORE_BLENDING       the intensity blend and the brightness table also work on the selection colour
//   SHOWS_PLAIN_COLOR             neither of the two is applied
//   TABLE_OF_STORED_COLOR         the brightness table is looked up with the stored colour, not the blended one
//   SHOWS_HIDDEN_MARKED           hidden points that have a mark are drawn, darker
//   LINE_POINT_SIZE               size of the points of an enhanced line
// The application defines NO_EXTRAS where none of the uniforms that switch selection, clipping, the filters, a light
// or an enhanced line on is set: most clouds are drawn so, and the shader is then less than half as long. It defines
// IN_CLOUD for the cells of a point cloud. Other geometry is tested against every fixed-function plane, whether on
// or off; a cloud leaves that to gl_ClipVertex, which heeds exactly the planes that are on for it. It defines
// LEAVES_OUT_SURFACE where a surface is drawn of the points of some classes.
#pragma import_defines(NO_EXTRAS, IN_CLOUD, LEAVES_OUT_SURFACE)
#include "attributes.glsl"
#include "uniforms.glsl"
#include "clipping.glsl"
#ifndef NO_EXTRAS
#include "selection.glsl"
#include "line.glsl"
#endif
#include "pick_position.glsl"
#include "point_size.glsl"

#ifndef LINE_POINT_SIZE
#define LINE_POINT_SIZE float(lineEnHancementPointSize)
#endif

out float cansee; // at least 1: drawn, 0: hidden
out vec4 color;

const float kNoLight = 0.0; // values of normalLight.w
const float kSunLight = 2.0;
const float kAmbientLight = 0.3;

// Outside the picture, yet so near that no renderer has to clip what is there point by point.
const vec4 kNowhere = vec4(1.5, 1.5, 0.0, 1.0);

vec4 modeColor(dvec4 globalPosition);

bool isSurfaceClass(int code)
{
    return ((surfaceClasses[code >> 5] >> (code & 31)) & 1) != 0;
}

#ifndef NO_EXTRAS
void applySelection()
{
    if (!activeClip) return;
    if (isSelect(gl_Vertex)) color = selectColor;
    if (!isVisible(gl_Vertex)) cansee = 0.0;
}

void applyClipping(dvec4 globalPosition)
{
    if (isUseSectionPlane && !isInClipPlane(globalPosition)) cansee = 0.0;
    if (activeDClipPlane && !isInClipBox(globalPosition)) cansee = 0.0;
    if (!isInCloudPlanes(globalPosition)) cansee = 0.0;
}

// Keeps surfaces that are seen under a flat angle, at least 60 degrees off the view axis.
void applyNormalFilter()
{
    if (!activeNormal) return;
    vec3 viewNormal = gl_NormalMatrix * normal.xyz;
    if (1.0 - abs(dot(vec3(0.0, 0.0, 1.0), viewNormal)) < 0.5) cansee = 0.0;
}

void applyClassFilter()
{
    int code = classCode();
    if (activeClassFilter && ((hiddenClasses[code >> 5] >> (code & 31)) & 1) != 0) cansee = 0.0;
}

// How much of the light the seen side of a surface catches: which side its normal points to is a convention, and on
// walls it changes from point to point.
float caughtLight()
{
    const float kEdgeOn = 1e-4; // neither side is seen
    bool isParallel = gl_ProjectionMatrix[3][3] == 1.0;
    vec3 toEye = isParallel ? vec3(0.0, 0.0, 1.0) : -normalize((gl_ModelViewMatrix * gl_Vertex).xyz);
    float facing = dot(normalize(gl_NormalMatrix * normal.xyz), toEye);
    if (normalLight.w != kSunLight) return abs(facing);
    vec3 worldNormal = normalize(inverse(transpose(mat3(modelMatrix))) * normal.xyz);
    float toSun = dot(worldNormal, normalLight.xyz);
    return max(facing < -kEdgeOn ? -toSun : toSun, 0.0);
}

// Points without a normal keep their colour.
void applyLight()
{
    if (normalLight.w == kNoLight || normal.xyz == vec3(0.0)) return;
    color.rgb *= kAmbientLight + (1.0 - kAmbientLight) * caughtLight();
}

void enhanceLine(dvec4 globalPosition)
{
    if (!isOnEnhancedLine(globalPosition.xy)) return;
    gl_PointSize = LINE_POINT_SIZE;
    color = lineEnHancementColor;
}
#else
void applySelection() {}
void applyClipping(dvec4 globalPosition) {}
void applyNormalFilter() {}
void applyClassFilter() {}
void applyLight() {}
void enhanceLine(dvec4 globalPosition) {}
#endif

float adjusted(float channel)
{
    return BrightWithContrast[clamp(int(channel * 255.0), 0, 255)] / 255.0;
}

void applyIntensityAndTable()
{
    if (blendIntensity) {
        float percentage = (storedIntensity() - intensityPair.x) / intensityPair.y;
        color = vec4(color.rgb * min(max(0.0, percentage), 1.0), 1.0);
    }
    if (isUseBCTable) {
#ifdef TABLE_OF_STORED_COLOR
        vec3 source = storedColor();
#else
        vec3 source = color.rgb;
#endif
        color.rgb = vec3(adjusted(source.r), adjusted(source.g), adjusted(source.b));
    }
}

void applyCullFlag()
{
    if ((categoryWithColorR & kHiddenBits) == 0) return;
#ifdef SHOWS_HIDDEN_MARKED
    if (pointMark() != 0) {
        color.rgb *= 0.6;
        return;
    }
#endif
    if (activeCullModel)
        cansee = 0.0;
    else
        color = cullColor;
}

void main()
{
    gl_Position = ftransform();
    gl_ClipVertex = gl_ModelViewMatrix * gl_Vertex; // for fixed-function clip planes
    dvec4 globalPosition = modelMatrix * dvec4(gl_Vertex);

    cansee = 2.0;
    color = modeColor(globalPosition);
#ifdef SELECTS_BEFORE_BLENDING
    applySelection();
#endif
#ifndef SHOWS_PLAIN_COLOR
    applyIntensityAndTable();
#endif
    applyLight();
#ifndef SELECTS_BEFORE_BLENDING
    applySelection();
#endif
    applyClipping(globalPosition);
#ifndef IN_CLOUD
    if (!isInFixedFunctionPlanes(gl_ModelViewMatrix * gl_Vertex)) cansee = 0.0;
#endif
    applyNormalFilter();
    applyClassFilter();
    applyCullFlag();

    gl_PointSize = sizeOfPoint(gl_Position.w);
    enhanceLine(globalPosition);
    writePickAttributes(globalPosition.xyz);
#ifdef LEAVES_OUT_SURFACE
    if (isSurfaceClass(classCode())) gl_Position = kNowhere;
#endif
}
