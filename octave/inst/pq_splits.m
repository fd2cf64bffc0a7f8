## -*- texinfo -*-
## @deftypefn  {} {@var{tasks} =} pq_splits (@var{source}, @var{n})
## @deftypefnx {} {@var{tasks} =} pq_splits (@var{source}, @var{n}, @var{name}, @var{value}, @dots{})
## Split the row groups of Parquet files into @var{n} tasks for parallel workers.
##
## @var{source} is a file name, or a folder, a glob pattern or a cell array of these read as one
## dataset (see @code{help pq_read}): with a filter, its partitions and row groups that the
## filter rules out are in no task, and each task names the dataset, so that
## @code{pq_read_task} reads its files as part of it (the dataset's variables and types, and
## partition values from the folders).  @var{tasks} is an @var{n}x1 cell of texts, one per
## task: each holds a run of row groups of about 1/@var{n} of the files' compressed bytes, and
## every row group is in exactly one task (tasks are empty where there are fewer row groups than
## tasks).  Every process that plans the same files gets the same tasks.
##
## A task is a line of JSON that names its files relative to the folder that holds them all,
## with a fingerprint of each file (its size and a hash of its footer); @code{pq_read_task}
## reads it and refuses a file that changed since ("VANTRO:parquetio:plan:FileChanged").  Send
## it to another process or machine as it is, or save it to a file.
##
## Options:
## @table @asis
## @item "Where"
## a row filter (see @code{help pq_read}): row groups whose statistics rule it out are in no
## task, and the task carries the filter so that @code{pq_read_task} returns matching rows only.
## @item "Variables"
## the variables the tasks read (default: all).
## @item "Partitioning", "Strict", "SkipBadFiles"
## as for @code{pq_read}; the tasks carry the first two.
## @end table
##
## With the @code{parallel} package (@code{pkg load parallel}), on the workers of one machine:
## @example
## @group
## tasks = pq_splits ("data", 8, "Where", "x > 0");
## sums = parcellfun (4, @@(t) sum (pq_read_task (t).x), tasks);
## @end group
## @end example
## @code{parcellfun} reports a worker's error without its identifier; to keep it, catch it in
## a worker function of its own file (functions defined at the prompt do not reach the workers)
## and return @code{err.identifier}, as the tests below do.  Across machines, start one Octave per rank
## (@code{mpirun -n 4 octave-cli --eval "..."}) and let each read the task of its rank, from
## the launcher's variables (Open MPI: @code{OMPI_COMM_WORLD_RANK}, @code{OMPI_COMM_WORLD_SIZE};
## MPICH: @code{PMI_RANK}, @code{PMI_SIZE}; Slurm job arrays: @code{SLURM_ARRAY_TASK_ID}):
## @example
## @group
## rank = str2double (getenv ("OMPI_COMM_WORLD_RANK"));
## size = str2double (getenv ("OMPI_COMM_WORLD_SIZE"));
## tasks = pq_splits ("/data/sales", size);
## T = pq_read_task (tasks@{rank + 1@});
## @end group
## @end example
## @seealso{pq_read_task, pq_reader, pq_count}
## @end deftypefn

function tasks = pq_splits (source, n, varargin)
  if (nargin < 2)
    print_usage ();
  endif
  if (! isnumeric (n) || ! isscalar (n) || ! isreal (n) || n < 1 || n != fix (n) || n > 1e6)
    error ("VANTRO:octave:InvalidArgument",
           "pq_splits: N must be a whole number from 1 to 1000000");
  endif
  dataset_options = {"Partitioning", "Strict", "SkipBadFiles"};
  opts = pq_options ("pq_splits", [{"Where", "Variables"}, dataset_options], varargin);
  if (pq_single_file (source) && ! any (isfield (opts, dataset_options)))
    tasks = __pq_mex__ ("plan", {source}, double (n), opts);
  else
    tasks = __pq_mex__ ("plandataset", source, double (n), opts);
  endif
endfunction

%!shared dir, files
%! dir = tempname (); mkdir (dir);
%! files = {fullfile(dir, "a.parquet"), fullfile(dir, "b.parquet")};
%! pq_write (files{1}, struct ("x", (1:60)'), "RowGroupHeights", 10 * ones (1, 6));
%! pq_write (files{2}, struct ("x", (61:100)'), "RowGroupHeights", [15 25]);

%!test
%! for n = [1 2 3 7 20]
%!   tasks = pq_splits (dir, n);
%!   assert (size (tasks), [n 1]);
%!   x = [];
%!   for k = 1:n
%!     T = pq_read_task (tasks{k});
%!     if (isfield (T, "x"))
%!       x = [x; T.x];
%!     endif
%!   endfor
%!   assert (sort (x), (1:100)');
%! endfor

%!test
%! tasks = pq_splits (files, 2, "Where", "x > 95", "Variables", {"x"});
%! x = [];
%! for k = 1:2
%!   T = pq_read_task (tasks{k});
%!   if (isfield (T, "x"))
%!     x = [x; T.x];
%!   endif
%! endfor
%! assert (x, (96:100)');

## parcellfun drops the identifier of a worker's error (and functions defined at the prompt
## do not reach its workers): a wrapper in a file of its own returns the identifier instead.
%!test
%! if (isempty (pkg ("list", "parallel")))
%!   return;
%! endif
%! pkg load parallel
%! tasks = pq_splits (dir, 3);
%! sums = parcellfun (2, @(t) sum (pq_read_task (t).x), tasks, "VerboseLevel", 0);
%! assert (sum (sums), 5050);
%! helpers = tempname (); mkdir (helpers);
%! fid = fopen (fullfile (helpers, "pq_test_identifier_of.m"), "w");
%! fputs (fid, ["function id = pq_test_identifier_of (task)\n  id = '';\n  try\n" ...
%!              "    pq_read_task (task);\n  catch err\n    id = err.identifier;\n" ...
%!              "  end_try_catch\nendfunction\n"]);
%! fclose (fid);
%! addpath (helpers);
%! unwind_protect
%!   other = fullfile (tempname (), "c.parquet");
%!   mkdir (fileparts (other));
%!   pq_write (other, struct ("y", (1:4)'));
%!   changed = pq_splits (other, 1);
%!   pq_write (other, struct ("y", (1:5)'));
%!   ids = parcellfun (2, @pq_test_identifier_of, [tasks; changed], "UniformOutput", false, ...
%!                     "VerboseLevel", 0);
%!   assert (ids, {""; ""; ""; "VANTRO:parquetio:plan:FileChanged"});
%! unwind_protect_cleanup
%!   rmpath (helpers);
%! end_unwind_protect

%!error <N must be a whole number> pq_splits ("a.parquet", 0)
%!error <N must be a whole number> pq_splits ("a.parquet", 1.5)
%!error <unknown option> pq_splits ("a.parquet", 2, "Nope", 1)
%!error id=VANTRO:parquetio:dataset:NoMatch pq_splits (fullfile (tempdir (), "no-such-*.parquet"), 2)

## A partitioned folder whose files drift: every task reads its files as part of the dataset.
%!test
%! root = tempname (); mkdir (root);
%! for year = 2022:2024
%!   folder = fullfile (root, sprintf ("year=%d", year)); mkdir (folder);
%!   T = struct ("id", int32 ((1:20)' + 100 * year));
%!   if (year == 2024)
%!     T = struct ("id", int64 ((1:20)' + 100 * year), "note", {repmat({"n"}, 20, 1)});
%!   endif
%!   pq_write (fullfile (folder, "part-0.parquet"), T, "RowGroupHeights", [5 5 10]);
%! endfor
%! whole = pq_read (root, "Where", "year >= 2023 and id != 202305");
%! tasks = pq_splits (root, 4, "Where", "year >= 2023 and id != 202305");
%! assert (all (cellfun (@isempty, strfind (tasks, "year=2022"))));
%! id = []; year = []; note = {};
%! for k = 1:4
%!   T = pq_read_task (tasks{k});
%!   assert (fieldnames (T), {"id"; "note"; "year"});
%!   id = [id; T.id]; year = [year; T.year]; note = [note; T.note];
%! endfor
%! assert (id, whole.id);
%! assert (year, whole.year);
%! assert (note, whole.note);
