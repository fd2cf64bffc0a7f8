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
## "VANTRO:parquetio:dataset:NoMoreData".
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
