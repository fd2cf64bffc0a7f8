## -*- texinfo -*-
## @deftypefn  {} {@var{S} =} pq_stats (@var{file})
## @deftypefnx {} {@var{S} =} pq_stats (@var{file}, "Variables", @var{names}, @dots{})
## The row-group statistics of a Parquet file, from its footer only.
##
## @var{S} has one row per row group and one column per variable:
## @table @code
## @item VariableNames
## the variables described (1xV cellstr), all of them unless "Variables" names some
## @item HasNullCount, HasDistinctCount, HasMinMax
## RxV logical: whether the footer holds that statistic.  A distinct count of 0 for a chunk
## that holds values is no count (Arrow's writer stores one in every chunk): it is reported
## as absent.
## @item NullCount, DistinctCount
## RxV int64, zero where the footer has no count
## @item Min, Max
## 1xV cell; cell v holds the R minima (maxima) of variable v as a column in that
## variable's shape (double with NaN, cellstr with [], the datetime struct, ...), missing
## where HasMinMax is false
## @item WithoutStatistics
## 1xK struct array (fields Variable, Identifier, Message): the variables left out because
## their statistics cannot order rows (lists, structs, maps, binary, fixed-length decimals),
## each with the reason; empty when "Variables" is given
## @end table
##
## Options: "Variables" (cellstr or one name) and "DatesAs" ("ticks" or "datenum", as for
## @code{pq_read}).  Without "Variables", every variable that has statistics is described
## and the others are listed in WithoutStatistics.  A variable named in "Variables" that has
## none fails with "VANTRO:parquetio:read:UnsupportedRowFilterVariable", naming it; unknown
## names with "VANTRO:octave:UnknownVariable", whose message lists the file's variables.
##
## Example:
## @example
## @group
## S = pq_stats ("t.parquet", "Variables", @{"x"@});
## candidates = find (S.HasMinMax(:,1) & S.Max@{1@} > 100)   # row groups that may match
## @end group
## @end example
## @seealso{pq_read, pq_reader, pq_info}
## @end deftypefn

function S = pq_stats (file, varargin)
  if (nargin < 1)
    print_usage ();
  endif
  opts = pq_options ("pq_stats", {"Variables", "DatesAs"}, varargin);
  S = __pq_mex__ ("stats", file, opts);
endfunction

%!shared dir, file
%! dir = tempname (); mkdir (dir);
%! file = fullfile (dir, "t.parquet");
%! pq_write (file, struct ("x", [5; 1; NaN; 7; 9], "s", {{"b"; "a"; "z"; []; "c"}},
%!                       "l", {{1; 2; 3; 4; 5}}), "RowGroupHeights", [2 3], "Version", "2.0");

%!test
%! S = pq_stats (file, "Variables", {"s", "x"});
%! assert (S.VariableNames, {"s", "x"});
%! assert (S.HasMinMax, true (2, 2));
%! assert (S.HasNullCount, true (2, 2));
%! assert (S.NullCount, int64 ([0 0; 1 1]));
%! assert (S.Min{2}, [1; 7]);
%! assert (S.Max{2}, [5; 9]);
%! assert (S.Min{1}, {"a"; "c"});
%! assert (S.Max{1}, {"b"; "z"});
%! assert (class (S.DistinctCount), "int64");
%!test
%! S = pq_stats (file, "Variables", "x");
%! assert (size (S.HasMinMax), [2 1]);
%!test
%! ts = struct ("Type", "datetime", "Ticks", int64 ([0; 86400]), "Unit", "s",
%!              "TimeZone", "", "Kind", "timestamp", "Missing", [false; false]);
%! f = fullfile (dir, "d.parquet");
%! pq_write (f, struct ("t", ts));
%! S = pq_stats (f);
%! assert (S.Min{1}.Ticks, int64 (0));
%! S = pq_stats (f, "DatesAs", "datenum");
%! assert (S.Max{1}, datenum (1970, 1, 2));

%!test
%! S = pq_stats (file);
%! assert (S.VariableNames, {"x", "s"});
%! assert (size (S.HasMinMax), [2 2]);
%! assert (numel (S.WithoutStatistics), 1);
%! assert (S.WithoutStatistics(1).Variable, "l");
%! assert (S.WithoutStatistics(1).Identifier,
%!         "VANTRO:parquetio:read:UnsupportedRowFilterVariable");
%! assert (! isempty (strfind (S.WithoutStatistics(1).Message, "'l'")));
%!test
%! S = pq_stats (file, "Variables", "x");
%! assert (isempty (S.WithoutStatistics));
%!test
%! try
%!   pq_stats (file, "Variables", {"x", "l"});
%!   error ("not refused");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:read:UnsupportedRowFilterVariable");
%!   assert (! isempty (strfind (err.message, "'l'")));
%! end_try_catch
%!error id=VANTRO:parquetio:read:UnsupportedRowFilterVariable pq_stats (file, "Variables", "l")
%!error id=VANTRO:octave:UnknownVariable pq_stats (file, "Variables", "nope")
%!error <The file has no variable 'nope'. Its variables: 'x', 's', 'l'.> pq_stats (file, "Variables", "nope")
%!error id=VANTRO:octave:InvalidArgument pq_stats (file, "Variables", "x", "DatesAs", "days")
%!error id=VANTRO:vfs:IsDirectory pq_stats (dir)
## Distinct counts: only where the writer set one. Arrow's writer flags a 0 in every chunk,
## which no chunk holding a value can mean; a chunk of nulls only has 0 distinct values.
%!test
%! f = fullfile (dir, "n.parquet");
%! pq_write (f, struct ("x", [1; 2; NaN; NaN]), "RowGroupHeights", [2 2]);
%! S = pq_stats (f);
%! assert (S.HasDistinctCount(1), false);
%! assert (S.DistinctCount(1), int64 (0));
%! assert (S.NullCount, int64 ([0; 2]));
%!error id=VANTRO:octave:InvalidArgument pq_stats (file, "Variables", 3)
%!error id=VANTRO:vfs:FileNotFound pq_stats (fullfile (dir, "none.parquet"))
%!error <Invalid call> pq_stats ()

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
