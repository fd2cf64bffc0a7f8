## -*- texinfo -*-
## @deftypefn  {} {@var{T} =} pq_read_task (@var{task})
## @deftypefnx {} {@var{T} =} pq_read_task (@var{task}, @var{name}, @var{value}, @dots{})
## Read the rows of one task that @code{pq_splits} planned.
##
## @var{T} is a table as @code{pq_read} returns it, of the task's row groups in the task's
## order, with the variables and the row filter the task was planned with.  A task of a
## dataset (a folder, a pattern or a list planned as one) is read as part of it: the dataset is
## listed again from its sources, and the task's rows come with the dataset's variables and
## types and their partition values (files that came since the plan and cannot be read are
## left out with a warning).  The files of any other task must have the same variables and
## types; such a task without row groups gives a struct without fields.
##
## Before anything is read, each file is compared with the fingerprint in the task: a file
## that was rewritten, truncated or replaced since the task was planned fails with
## "VANTRO:parquetio:plan:FileChanged".
##
## Options:
## @table @asis
## @item "Root"
## the folder that now holds the task's files, where the data are mounted elsewhere than
## where they were planned; paths inside it are as they were.
## @item "DatesAs"
## as for @code{pq_read}.
## @end table
##
## Example:
## @example
## @group
## tasks = pq_splits ("data", 4);
## T = pq_read_task (tasks@{2@}, "Root", "/mnt/copy/data");
## @end group
## @end example
## @seealso{pq_splits, pq_read}
## @end deftypefn

function T = pq_read_task (task, varargin)
  if (nargin < 1)
    print_usage ();
  endif
  if (! ischar (task) || ! isrow (task))
    error ("VANTRO:octave:InvalidArgument",
           "pq_read_task: TASK must be a task text as pq_splits returns it");
  endif
  opts = pq_options ("pq_read_task", {"Root", "DatesAs"}, varargin);
  T = __pq_mex__ ("task", task, opts);
endfunction

%!shared dir, file
%! dir = tempname (); mkdir (dir);
%! file = fullfile (dir, "a.parquet");
%! pq_write (file, struct ("x", (1:6)', "s", {{"a"; "b"; "c"; "d"; "e"; "f"}}), ...
%!           "RowGroupHeights", [2 2 2]);

%!test
%! tasks = pq_splits (file, 2);
%! T1 = pq_read_task (tasks{1});
%! T2 = pq_read_task (tasks{2});
%! assert ([T1.x; T2.x], (1:6)');
%! assert ([T1.s; T2.s], {"a"; "b"; "c"; "d"; "e"; "f"});

## Data mounted elsewhere: the same files under another root.
%!test
%! tasks = pq_splits (file, 1);
%! other = tempname (); mkdir (other);
%! copyfile (file, fullfile (other, "a.parquet"));
%! T = pq_read_task (tasks{1}, "Root", other);
%! assert (T.x, (1:6)');

%!test
%! f = fullfile (dir, "b.parquet");
%! pq_write (f, struct ("x", (1:3)'));
%! tasks = pq_splits (f, 1);
%! pq_write (f, struct ("x", (1:4)'));
%! try
%!   pq_read_task (tasks{1});
%!   error ("not refused");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:plan:FileChanged");
%! end_try_catch

%!error <VANTRO:parquetio:plan:InvalidTask|Invalid task> pq_read_task ("{}")
%!error <TASK must be a task text> pq_read_task (3)
