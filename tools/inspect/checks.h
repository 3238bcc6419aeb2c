#pragma once

#include "tools/inspect/inspection.h"

// One check a function. Each adds what it finds, and may look at what those before it found: a
// file whose layout is wrong is not compared with others.
using InspectionCheck = void (*)(Inspection& inspection);

// Of names and bytes: what is there, how long it is, how its rows run.
void CheckPresence(Inspection& inspection);
void CheckImageLayouts(Inspection& inspection);
void CheckDisparitySize(Inspection& inspection);
void CheckNames(Inspection& inspection);

// Of the parameter text.
void CheckParameters(Inspection& inspection);

// Of what the images show, by themselves and against one another.
void CheckWritten(Inspection& inspection);
void CheckFallback(Inspection& inspection);
void CheckSwapped(Inspection& inspection);
void CheckAuxRotation(Inspection& inspection);
void CheckMoment(Inspection& inspection);
void CheckChroma(Inspection& inspection);
