// The subcommands: each of these puts one on the command line.
#pragma once

#include "command.h"

namespace bmtree::tools {

void addLoad(Program& program);
void addImport(Program& program);
void addExport(Program& program);

void addLs(Program& program);
void addStat(Program& program);
void addCount(Program& program);
void addTest(Program& program);

void addGet(Program& program);
void addFirst(Program& program);
void addLast(Program& program);
void addFree(Program& program);

void addSet(Program& program);
void addClear(Program& program);
void addRangeCommand(Program& program);
void addTruncate(Program& program);
void addRm(Program& program);
void addCp(Program& program);
void addRename(Program& program);

void addAnd(Program& program);
void addOr(Program& program);
void addMinus(Program& program);
void addXor(Program& program);

void addPack(Program& program);
void addUnpack(Program& program);

void addVerify(Program& program);
void addCompact(Program& program);
void addCheckFile(Program& program);

void addMap(Program& program);

void addCompletion(Program& program);

}  // namespace bmtree::tools
