#pragma once

// The gateway's commands, one per package function (see the .m files for their arguments).
// Each reads its arguments from args[0..count) and returns its outputs through out.
#include <mex.h>

#include "OctaveValues.hpp"
#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

namespace vantro::octave {

using Command = void (*)(int nout, mxArray* out[], int count, const mxArray* args[]);

void infoCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void countCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void readCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void rowGroupsCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void nextCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void restoreCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void statsCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void writeCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void planCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void taskCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void fingerprintCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void checkFingerprintCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void threadsCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
// Datasets: many files read as one table.
void readDatasetCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void planDatasetCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
// The rows of a task that names its dataset, read as part of it.
mxArray* readDatasetTask(const ::vantro::io::parquet::core::plan::Task& task,
                         const ToOctaveOptions& translation);
void datasetInfoCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void listFilesCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetOpenCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetReadCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetReadAllCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetResetCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetHasDataCommand(int nout, mxArray* out[], int count, const mxArray* args[]);
void datasetCloseCommand(int nout, mxArray* out[], int count, const mxArray* args[]);

}  // namespace vantro::octave
