## -*- texinfo -*-
## @deftypefn  {} {@var{n} =} pq_threads ()
## @deftypefnx {} {@var{n} =} pq_threads (@var{count})
## The number of threads the package's reads, writes and conversions use.
##
## By default it is the number of CPUs this Octave process may run on: those of its affinity
## mask (@code{taskset}, an MPI launcher's binding), no more than its cgroup's CPU quota (a
## container's or a Slurm job's).  @code{pq_threads (@var{count})} sets it for the rest of the
## session and returns the new count; a @var{count} of 0 or less restores the default.
## @var{count} must be one whole number, else "VANTRO:octave:InvalidArgument".
##
## Example:
## @example
## @group
## pq_threads (1);        # one thread per MPI rank
## T = pq_read ("t.parquet");
## pq_threads (0);        # back to the default
## @end group
## @end example
## @seealso{pq_read, pq_write}
## @end deftypefn

function n = pq_threads (count)
  if (nargin > 1)
    print_usage ();
  endif
  if (nargin == 0)
    n = __pq_mex__ ("threads");
  else
    n = __pq_mex__ ("threads", count);
  endif
endfunction

%!test
%! default = pq_threads ();
%! assert (default >= 1);
%! unwind_protect
%!   assert (pq_threads (3), 3);
%!   assert (pq_threads (), 3);
%!   dir = tempname (); mkdir (dir);
%!   file = fullfile (dir, "t.parquet");
%!   pq_write (file, struct ("x", (1:1000)'));
%!   T = pq_read (file);
%!   assert (T.x, (1:1000)');
%!   delete (file); rmdir (dir);
%!   assert (pq_threads (0), default);
%!   pq_threads (2);
%!   assert (pq_threads (-4), default);
%! unwind_protect_cleanup
%!   pq_threads (0);
%! end_unwind_protect

%!error id=VANTRO:octave:InvalidArgument pq_threads (1.5)
%!error id=VANTRO:octave:InvalidArgument pq_threads ([1 2])
%!error id=VANTRO:octave:InvalidArgument pq_threads ("2")
%!error id=VANTRO:octave:InvalidArgument pq_threads (Inf)
%!error id=VANTRO:octave:InvalidArgument pq_threads (NaN)
%!error id=VANTRO:octave:InvalidArgument pq_threads (1 + 2i)
%!error <called with too many inputs> pq_threads (1, 2)
