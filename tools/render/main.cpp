#include "tools/render/RenderTool.h"

int main(int argc, char** argv) { return render::runRenderTool(argc, argv); }
