classdef pq_reader < handle

## -*- texinfo -*-
## @deftypefn  {} {@var{r} =} pq_reader (@var{file})
## @deftypefnx {} {@var{r} =} pq_reader (@var{file}, @var{name}, @var{value}, @dots{})
## @deftypefnx {} {@var{r} =} pq_reader (@var{state}, @dots{})
## A reader that walks a Parquet file one row group at a time.
##
## Options as for @code{pq_read}: "Variables", "RowGroups" (the row groups to visit, in
## order), "ByteRange" ([offset size]: the row groups that start in it), "Where" (a row
## filter) and "DatesAs".  Without "RowGroups" or "ByteRange" the reader visits every row
## group.  A file without row groups yields one table without rows.
##
## Methods:
## @table @code
## @item hasdata (r)
## true while there is a row group left to read
## @item T = read (r)
## the next row group as a table (see @code{help pq_read} for its values); reading past the
## end fails with "VANTRO:parquetio:read:InternalInvalidRead"
## @item T = readall (r)
## every row group of the reader at once, wherever its cursor is
## @item reset (r)
## back to the first row group
## @item state = save (r)
## the reader's state: a 1x3 cell holding the absolute file name and a column of the row groups
## not yet read, as the library's row-group reader keeps them, then the file's fingerprint
## (its size and a hash of its footer, as text).  @code{pq_reader (state)} makes a reader that
## continues from there, in this process or another one, and refuses a file that was rewritten
## since with "VANTRO:parquetio:plan:FileChanged"; the library's own 1x2 state (without the
## fingerprint) is taken too.  Options given with the state apply to the new reader (the state
## does not carry them).
## @end table
## The properties @code{Filename} (made absolute), @code{RowGroups} and @code{Position} (row
## groups read so far) can be read.
##
## Row filter ("Where"): comparisons @code{== != < <= > >=} (also @code{= ~= <>}) of a
## variable with a constant, @code{x in (1, 2)}, @code{x between 1 and 5},
## @code{x is null}, @code{x is not null}, combined with @code{&} / @code{and},
## @code{|} / @code{or}, @code{~} / @code{not} and parentheses.  Constants are numbers, texts in
## single or double quotes, @code{true}/@code{false} and ISO dates or timestamps.  Names that
## are not plain words go in backticks.  Row groups whose statistics rule out a match are
## left out of @code{RowGroups}; the rows of each row group read are filtered exactly.
##
## Example:
## @example
## @group
## r = pq_reader ("big.parquet", "Variables", @{"x"@}, "Where", "x > 100");
## total = 0;
## while (hasdata (r))
##   T = read (r);
##   total += sum (T.x);
## endwhile
##
## r = pq_reader ("big.parquet");
## T1 = read (r);
## state = save (r);              # continue elsewhere:
## r2 = pq_reader (state);
## rest = readall (r2);
## @end group
## @end example
## @seealso{pq_read, pq_info, pq_stats}
## @end deftypefn


  properties (SetAccess = private)
    Filename = "";
    RowGroups = zeros (0, 1);
    Position = 0;
  endproperties

  properties (Access = private)
    Options = struct ();
    TotalRowGroups = 0;
    Fingerprint = "";
  endproperties

  methods

    function r = pq_reader (source, varargin)
      if (nargin < 1)
        error ("Octave:invalid-fun-call", "Invalid call to pq_reader");
      endif
      opts = pq_options ("pq_reader", {"Variables", "RowGroups", "ByteRange", "Where", ...
                                       "DatesAs"}, varargin);
      if (iscell (source))
        if (isfield (opts, "RowGroups") || isfield (opts, "ByteRange"))
          error ("VANTRO:octave:InvalidArgument",
                 "pq_reader: a saved state already says which row groups to read");
        endif
        if (numel (source) == 3)
          ## A state of save (): the file must still be the one it was saved from.
          __pq_mex__ ("checkfingerprint", source{1}, source{3});
          source = source(1:2);
        endif
        [source, remaining] = __pq_mex__ ("restore", source);
        opts.RowGroups = remaining;
        [r.RowGroups, r.TotalRowGroups] = __pq_mex__ ("rowgroups", source, opts);
      else
        [r.RowGroups, r.TotalRowGroups] = __pq_mex__ ("rowgroups", source, opts);
      endif
      ## A saved state names the file absolutely, so that another process in another folder
      ## reads the same file.
      if (isempty (regexp (source, '^[A-Za-z][A-Za-z0-9+.-]*://', "once")))
        source = make_absolute_filename (source);
      endif
      r.Filename = source;
      r.Fingerprint = __pq_mex__ ("fingerprint", source);
      opts = rmfield (opts, intersect (fieldnames (opts), {"RowGroups", "ByteRange"}));
      r.Options = opts;
    endfunction

    function tf = hasdata (r)
      tf = r.Position < numel (r.RowGroups) || (r.TotalRowGroups == 0 && r.Position == 0);
    endfunction

    function T = read (r)
      opts = r.Options;
      opts.RowGroups = r.RowGroups;
      [T, r.Position] = __pq_mex__ ("next", r.Filename, opts, r.Position);
    endfunction

    function T = readall (r)
      opts = r.Options;
      opts.RowGroups = r.RowGroups;
      T = __pq_mex__ ("read", r.Filename, opts);
    endfunction

    function reset (r)
      r.Position = 0;
    endfunction

    function state = save (r)
      state = {r.Filename, r.RowGroups(r.Position+1:end), r.Fingerprint};
    endfunction

  endmethods

endclassdef

%!shared dir, file, T0
%! dir = tempname (); mkdir (dir);
%! file = fullfile (dir, "t.parquet");
%! T0 = struct ("x", (1:6)', "s", {{"a"; "b"; "c"; "d"; "e"; "f"}});
%! pq_write (file, T0, "RowGroupHeights", [1 2 3]);

%!test
%! r = pq_reader (file);
%! assert (r.RowGroups, [1; 2; 3]);
%! heights = [];
%! while (hasdata (r))
%!   T = read (r);
%!   heights(end+1) = numel (T.x);
%! endwhile
%! assert (heights, [1 2 3]);
%! assert (r.Position, 3);
%! reset (r);
%! assert (hasdata (r));
%! assert (read (r).x, 1);
%! assert (readall (r), T0);
%!test
%! r = pq_reader (file, "RowGroups", [3 1], "Variables", "s");
%! assert (read (r), struct ("s", {{"d"; "e"; "f"}}));
%! assert (read (r), struct ("s", {{"a"}}));
%! assert (! hasdata (r));
%!test
%! info = pq_info (file);
%! r = pq_reader (file, "ByteRange", [info.RowGroupOffsets(2), info.FileSize]);
%! assert (r.RowGroups, [2; 3]);
## save and continue elsewhere: the library's two elements, then the fingerprint.
%!test
%! r = pq_reader (file);
%! read (r);
%! state = save (r);
%! assert (size (state), [1 3]);
%! assert (state{2}, [2; 3]);
%! assert (readall (pq_reader (state(1:2))).x, (2:6)');
%! r2 = pq_reader (state, "Variables", {"x"});
%! assert (read (r2), struct ("x", [2; 3]));
%! assert (read (r2), struct ("x", [4; 5; 6]));
%! assert (! hasdata (r2));
%! done = pq_reader (save (r2));
%! assert (! hasdata (done));
## Where: the row groups that cannot match are not visited; the others are filtered.
%!test
%! r = pq_reader (file, "Where", "x >= 3 & x != 4", "Variables", "s");
%! assert (r.RowGroups, [2; 3]);
%! assert (read (r), struct ("s", {{"c"}}));
%! assert (readall (r), struct ("s", {{"c"; "e"; "f"}}));
%! r2 = pq_reader (save (r), "Where", "x == 5");
%! assert (r2.RowGroups, 3);
%! assert (read (r2), struct ("x", 5, "s", {{"e"}}));
%!error id=VANTRO:filter:UnknownVariable pq_reader (file, "Where", "nope == 1")
## A state made from a relative name still reads the same file from another folder.
%!test
%! here = pwd ();
%! unwind_protect
%!   cd (dir);
%!   r = pq_reader ("t.parquet");
%!   read (r);
%!   state = save (r);
%!   assert (state{1}, make_absolute_filename (file));
%!   cd (tempdir ());
%!   assert (readall (pq_reader (state)).x, (2:6)');
%!   assert (read (r).x, [2; 3]);
%! unwind_protect_cleanup
%!   cd (here);
%! end_unwind_protect
## A state of a file that was rewritten since is refused.
%!test
%! f = fullfile (dir, "changing.parquet");
%! pq_write (f, struct ("x", (1:4)'), "RowGroupHeights", [2 2]);
%! state = save (pq_reader (f));
%! pq_write (f, struct ("x", (1:5)'), "RowGroupHeights", [2 3]);
%! try
%!   pq_reader (state);
%!   error ("not refused");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:plan:FileChanged");
%! end_try_catch
%!error <fingerprint> pq_reader ({file, 1, "garbage"})
## Arguments are checked when the reader is made, not at its first read.
%!error <RowGroups: 99 is not a row group \(the file has row groups 1 to 3\)> pq_reader ({file, 99})
%!error id=VANTRO:octave:InvalidArgument pq_reader ({file, 99})
%!error id=VANTRO:octave:InvalidArgument pq_reader ({file, [1; 1.5]})
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "RowGroups", 0)
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "RowGroups", [1 4])
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "ByteRange", [-1 10])
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "ByteRange", [0 0])
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "DatesAs", "julian")
## A file without row groups yields one table without rows.
%!test
%! f = fullfile (dir, "empty.parquet");
%! pq_write (f, struct ("x", zeros (0, 1)));
%! r = pq_reader (f);
%! assert (hasdata (r));
%! T = read (r);
%! assert (fieldnames (T), {"x"});
%! assert (numel (T.x), 0);
%! assert (! hasdata (r));

%!error id=VANTRO:parquetio:read:InternalInvalidRead
%! r = pq_reader (file, "RowGroups", 1);
%! read (r);
%! read (r);
%!error id=VANTRO:vfs:FileNotFound pq_reader ({"/no/such/file.parquet", 1})
%!error id=VANTRO:octave:InvalidArgument pq_reader ({file})
%!error id=VANTRO:octave:InvalidArgument pq_reader ({file, [1; 2]}, "RowGroups", 1)
%!error id=VANTRO:octave:UnknownVariable pq_reader (file, "Variables", "nope")
%!error id=VANTRO:octave:InvalidArgument pq_reader (file, "Bogus", 1)
%!error id=VANTRO:vfs:FileNotFound pq_reader (fullfile (dir, "none.parquet"))
%!error <Invalid call> pq_reader ()

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
