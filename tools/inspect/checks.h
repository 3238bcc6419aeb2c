#pragma once

#include "tools/inspect/inspection.h"

// Each check adds its findings and may read those of the checks before it: an image whose layout is
// wrong is not compared with others.
using InspectionCheck = void (*)(Inspection& inspection);

// Names and lengths of the files, and the layout of their rows.
void CheckPresence(Inspection& inspection);
void CheckImageLayouts(Inspection& inspection);
void CheckDisparitySize(Inspection& inspection);
void CheckNames(Inspection& inspection);

// The parameter text.
void CheckParameters(Inspection& inspection);

// What the images show, each by itself and compared with one another.
void CheckWritten(Inspection& inspection);
void CheckFallback(Inspection& inspection);
void CheckSwapped(Inspection& inspection);
void CheckAuxRotation(Inspection& inspection);
void CheckMoment(Inspection& inspection);
void CheckChroma(Inspection& inspection);

// What is wrong with the direction in which a pair's objects are displaced; empty if nothing.
// `auxSide` as in FindPairProblems.
std::string WrongSide(const host::Image& main, const host::Image& aux, int auxSide);
