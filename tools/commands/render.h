#pragma once

#include "tools/render_options.h"

// `bokehnode render`: one pair of pictures through the node. Returns the exit code; UseErrors and
// host::PipelineErrors pass.
int Render(const RenderOptions& options);
