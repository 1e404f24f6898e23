// Uniforms that every point program understands, whatever its colour mode.
uniform dmat4 modelMatrix; // local to world, loaded for each cell
uniform dmat4 vpw;
uniform vec4 selectColor;
uniform vec4 cullColor;
uniform int pointSize;

uniform bool activeClip;       // selection and segmentation polygons
uniform bool activeCullModel;  // culled points are hidden, else drawn in cullColor
uniform bool activeNormal;
uniform bool activeClassFilter;
uniform int hiddenClasses[8];  // bit c % 32 of element c / 32: points of class c are hidden
uniform int surfaceClasses[8]; // as above, of points that are on the surface
uniform bool activeDClipPlane;
uniform dvec4 clipPlane[8];
uniform int cloudPlaneNum;     // planes of the cloud itself

uniform bool isUseSectionPlane;
uniform int sectionNum;
uniform dvec4 sectionOffset;

uniform bool activelineEnHancement;
uniform vec4 lineEnHancementColor;
uniform int lineEnHancementPointSize;

uniform vec4 normalLight;      // direction to the sun in the world; w: 0 no light, 1 from the eye, 2 from the sun

uniform bool blendIntensity;
uniform vec2 intensityPair;    // smallest intensity, span
uniform bool isUseBCTable;
uniform float BrightWithContrast[256];
