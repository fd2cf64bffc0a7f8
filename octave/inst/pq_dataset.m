classdef pq_dataset < handle

## -*- texinfo -*-
## @deftypefn  {} {@var{ds} =} pq_dataset (@var{source})
## @deftypefnx {} {@var{ds} =} pq_dataset (@var{source}, @var{name}, @var{value}, @dots{})
## Many Parquet files as one table, read whole or one piece (one row group of one file) at a
## time.
##
## @var{source} is a file, a folder, a glob pattern or a cell array of these, as for
## @code{pq_read}, whose help describes how files are found, the row order, the variables of
## the table (the files' variables by name, then the partition variables of
## @code{key=value} folders) and the types that differing files are read as.  The footers of
## all files are read once, when the object is made; a file that changes afterwards is not
## noticed until it is read.
##
## Options: "Variables", "Where", "DatesAs", "Partitioning", "PartitionTypes", "Strict" and
## "SkipBadFiles", as for @code{pq_read}.  "Where" decides which pieces are read when the
## object is made (files ruled out by their partition values, row groups by their
## statistics); the rows of each piece read are filtered exactly.
##
## Methods:
## @table @code
## @item hasdata (ds)
## true while there is a piece left to read
## @item T = read (ds)
## the next piece as a table (see @code{help pq_read} for its values); a dataset without
## pieces yields one table without rows.  Reading past the end fails with
## "VANTRO:parquetio:dataset:NoMoreData".  A read stopped by Ctrl-C fails with
## "VANTRO:host:Interrupted" and leaves the cursor where it was.
## @item T = readall (ds)
## every piece at once, wherever the cursor is
## @item reset (ds)
## back to the first piece
## @end table
##
## Properties (read only):
## @table @code
## @item Files
## the files, in reading order (Fx1 cellstr)
## @item VariableNames, VariableTypes
## every variable of the dataset and its Octave-side type, as @code{pq_info} names types
## (1xV cellstr), partition variables last
## @item PartitionVariables
## the partition variables (1xP cellstr)
## @item NumRows, NumRowGroups
## rows and row groups of all files, from their footers (before any filter)
## @item Pieces
## the pieces to read, an Nx2 @code{[file rowgroup]} list counted from 1 (@code{file}
## indexes @code{Files})
## @item Skipped
## what the filter ruled out before reading: an Nx1 struct array with @code{File},
## @code{RowGroup} (0 for a whole file ruled out by its partition values) and @code{Reason}
## @item Position
## the pieces read so far
## @end table
##
## Example:
## @example
## @group
## ds = pq_dataset ("data", "Variables", "x", "Where", "x > 1");
## total = 0;
## while (hasdata (ds))
##   T = read (ds);
##   total += sum (T.x);
## endwhile
## reset (ds);
## T = readall (ds);
## @end group
## @end example
## @seealso{pq_read, pq_reader, pq_info}
## @end deftypefn


  properties (SetAccess = private)
    Files = cell (0, 1);
    VariableNames = cell (1, 0);
    VariableTypes = cell (1, 0);
    PartitionVariables = cell (1, 0);
    NumRows = 0;
    NumRowGroups = 0;
    Pieces = zeros (0, 2);
    Skipped = struct ("File", {}, "RowGroup", {}, "Reason", {});
    Position = 0;
  endproperties

  properties (Access = private)
    ## The gateway's number for the library reader that it keeps for this object (0: none).
    Id = 0;
  endproperties

  methods

    function ds = pq_dataset (source, varargin)
      if (nargin < 1)
        error ("Octave:invalid-fun-call", "Invalid call to pq_dataset");
      endif
      opts = pq_options ("pq_dataset", [{"Variables", "Where", "DatesAs"}, ...
                                        pq_dataset_options()], varargin);
      [ds.Id, summary] = __pq_mex__ ("datasetopen", source, opts);
      for name = {"Files", "VariableNames", "VariableTypes", "PartitionVariables", ...
                  "NumRows", "NumRowGroups", "Pieces", "Skipped"}
        ds.(name{1}) = summary.(name{1});
      endfor
    endfunction

    function delete (ds)
      if (ds.Id != 0)
        __pq_mex__ ("datasetclose", ds.Id);
        ds.Id = 0;
      endif
    endfunction

    function tf = hasdata (ds)
      tf = __pq_mex__ ("datasethasdata", ds.Id);
    endfunction

    function T = read (ds)
      [T, ds.Position] = __pq_mex__ ("datasetread", ds.Id);
    endfunction

    function T = readall (ds)
      T = __pq_mex__ ("datasetreadall", ds.Id);
    endfunction

    function reset (ds)
      __pq_mex__ ("datasetreset", ds.Id);
      ds.Position = 0;
    endfunction

  endmethods

endclassdef

## Each test makes its own dataset: year=2023 (id int32, two row groups) and year=2024 (id
## int64, with a "note"), a _SUCCESS marker beside them.
%!function d = make_dataset ()
%!  d = tempname ();
%!  mkdir (fullfile (d, "year=2023"));
%!  mkdir (fullfile (d, "year=2024"));
%!  pq_write (fullfile (d, "year=2023", "part-0.parquet"),
%!            struct ("id", int32 ([1; 2; 3]), "x", [0.5; 1.5; NaN]), "RowGroupHeights", [2 1]);
%!  pq_write (fullfile (d, "year=2024", "part-0.parquet"),
%!            struct ("id", int64 ([4; 5]), "x", [2.5; 3.5], "note", {{"a"; []}}));
%!  fclose (fopen (fullfile (d, "_SUCCESS"), "w"));
%!endfunction

%!function remove_dataset (d)
%!  confirm_recursive_rmdir (false, "local");
%!  rmdir (d, "s");
%!endfunction

%!function identifier = error_of (f)
%!  identifier = "";
%!  try
%!    f ();
%!  catch err
%!    identifier = err.identifier;
%!  end_try_catch
%!endfunction

%!test
%! d = make_dataset ();
%! unwind_protect
%!   ds = pq_dataset (d);
%!   assert (ds.Files, {fullfile(d, "year=2023", "part-0.parquet");
%!                      fullfile(d, "year=2024", "part-0.parquet")});
%!   assert (ds.VariableNames, {"id", "x", "note", "year"});
%!   assert (ds.VariableTypes, {"int64", "double", "string", "int64"});
%!   assert (ds.PartitionVariables, {"year"});
%!   assert ([ds.NumRows, ds.NumRowGroups], [5 3]);
%!   assert (ds.Pieces, [1 1; 1 2; 2 1]);
%!   assert (numel (ds.Skipped), 0);
%!   ## One piece per read, files in order, row groups ascending.
%!   heights = [];
%!   while (hasdata (ds))
%!     T = read (ds);
%!     heights(end+1) = numel (T.id);
%!   endwhile
%!   assert (heights, [2 1 2]);
%!   assert (ds.Position, 3);
%!   assert (T, struct ("id", int64 ([4; 5]), "x", [2.5; 3.5], "note", {{"a"; []}},
%!                      "year", int64 ([2024; 2024])));
%!   assert (error_of (@() read (ds)), "VANTRO:parquetio:dataset:NoMoreData");
%!   ## readall reads everything whatever the cursor, and leaves it where it was.
%!   assert (readall (ds), pq_read (d));
%!   assert (! hasdata (ds));
%!   reset (ds);
%!   assert (ds.Position, 0);
%!   assert (hasdata (ds));
%!   assert (read (ds).id, int64 ([1; 2]));
%!   assert (ds.Position, 1);
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Where decides the pieces when the object is made: Skipped says what was left out, by
%! ## partition values (the whole file: RowGroup 0) or by statistics, and why.
%! d = make_dataset ();
%! unwind_protect
%!   ds = pq_dataset (d, "Variables", "id", "Where", "year == 2023 & id >= 3");
%!   assert (ds.Pieces, [1 2]);
%!   assert (numel (ds.Skipped), 2);
%!   assert ({ds.Skipped.File}', flipud (ds.Files));
%!   assert ([ds.Skipped.RowGroup], [0 1]);
%!   assert (all (cellfun (@ischar, {ds.Skipped.Reason})) && ! any (cellfun (@isempty, {ds.Skipped.Reason})));
%!   assert (read (ds), struct ("id", int64 (3)));
%!   assert (! hasdata (ds));
%!   ## Filtered exactly within a piece read.
%!   ds = pq_dataset (d, "Where", "x != 1.5", "Variables", {"x", "year"});
%!   assert (read (ds), struct ("x", 0.5, "year", int64 (2023)));
%!   assert (readall (ds).x, [0.5; 2.5; 3.5]);
%!   ## Nothing left: one table without rows, then the end.
%!   ds = pq_dataset (d, "Where", "year > 2030");
%!   assert (size (ds.Pieces), [0 2]);
%!   assert (hasdata (ds));
%!   T = read (ds);
%!   assert (fieldnames (T), {"id"; "x"; "note"; "year"});
%!   assert (numel (T.id), 0);
%!   assert (! hasdata (ds));
%!   assert (error_of (@() read (ds)), "VANTRO:parquetio:dataset:NoMoreData");
%!   reset (ds);
%!   assert (hasdata (ds));
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Datasets are independent of each other; a copy of the object is the same dataset;
%! ## the gateway keeps them while it is cleared.
%! d = make_dataset ();
%! unwind_protect
%!   a = pq_dataset (d, "Variables", "id");
%!   b = pq_dataset (fullfile (d, "year=2024"), "Partitioning", "none", "DatesAs", "datenum");
%!   read (a);
%!   assert (read (b), struct ("id", int64 ([4; 5]), "x", [2.5; 3.5], "note", {{"a"; []}}));
%!   c = a;
%!   assert (read (c).id, int64 (3));
%!   assert (a.Position, 2);
%!   clear b;
%!   clear __pq_mex__;
%!   assert (read (a).id, int64 ([4; 5]));
%!   ## A deleted dataset cannot be read.
%!   delete (a);
%!   assert (error_of (@() read (c)), "VANTRO:octave:InvalidArgument");
%!   ## Many made and let go.
%!   for i = 1:200
%!     e = pq_dataset (d);
%!   endfor
%!   assert (readall (e).id, int64 ((1:5)'));
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Files without rows are part of the dataset.
%! d = tempname ();
%! mkdir (d);
%! unwind_protect
%!   pq_write (fullfile (d, "a.parquet"), struct ("x", zeros (0, 1)));
%!   ds = pq_dataset (d);
%!   assert ([ds.NumRows, numel(ds.Files)], [0 1]);
%!   T = read (ds);
%!   assert (fieldnames (T), {"x"});
%!   assert (size (T.x), [0 1]);
%!   assert (! hasdata (ds));
%!   pq_write (fullfile (d, "b.parquet"), struct ("x", [1; 2]));
%!   ds = pq_dataset (d);
%!   assert (ds.NumRows, 2);
%!   assert (readall (ds).x, [1; 2]);
%!   while (hasdata (ds))
%!     T = read (ds);
%!   endwhile
%!   assert (T.x, [1; 2]);
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Arguments are checked when the object is made.
%! d = make_dataset ();
%! unwind_protect
%!   assert (error_of (@() pq_dataset (d, "Variables", "nope")),
%!           "VANTRO:parquetio:dataset:UnknownVariable");
%!   assert (error_of (@() pq_dataset (d, "Where", "x >")), "VANTRO:filter:InvalidExpression");
%!   assert (error_of (@() pq_dataset (d, "RowGroups", 1)), "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_dataset (d, "DatesAs", "julian")), "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_dataset (d, "Variables", {})), "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_dataset (d, "SkipBadFiles", [true true])),
%!           "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_dataset (fullfile (d, "*.csv"))), "VANTRO:parquetio:dataset:NoMatch");
%!   assert (error_of (@() pq_dataset (fullfile (d, "none.parquet"))), "VANTRO:vfs:FileNotFound");
%!   assert (error_of (@() pq_dataset (42)), "VANTRO:octave:InvalidArgument");
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect
%!error <Invalid call> pq_dataset ()
