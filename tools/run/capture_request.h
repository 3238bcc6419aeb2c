#pragma once

#include "host/pipeline/pipeline.h"
#include "tools/run/run_options.h"

// A main and an aux camera whose sensors are as large as these images.
host::UseCase UseCaseOf(const RenderOptions& options, Size main, Size aux);

// The request's metadata as the options want it; images are not set. Throws UseError where a place
// is not in the main image.
host::Request RequestOf(const RenderOptions& options, const host::UseCase& useCase, Size main);

// To be called before a node is created: it reads them then.
void SetProperties(const RenderOptions& options);

// The debug view that the properties select, 0 for none.
int DebugView();

// The picture is the main image though nobody asked for it: without a debug view the engine's
// disparity goes with each picture that it had a part in.
bool IsCopy(const host::Published& published, int debugView);
