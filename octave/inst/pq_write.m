## -*- texinfo -*-
## @deftypefn  {} {} pq_write (@var{file}, @var{T})
## @deftypefnx {} {} pq_write (@var{file}, @var{T}, @var{name}, @var{value}, @dots{})
## Write a table to a Parquet file.
##
## @var{T} is a 1x1 struct with one field per variable, each a column of the same height, in
## the shapes that @code{pq_read} returns (see @code{help pq_read}): numeric and logical
## columns, cellstr text (@code{[]} for a missing text), cells of uint8 vectors (binary),
## cells of columns (lists), nested 1x1 structs (structs), cells of @code{Key}/@code{Value}
## structs (maps), and the @code{Type}-tagged structs of datetimes, durations and
## categoricals.  NaN in a double or single column is written as a missing value.  Reading
## the file back gives an equal struct.
##
## The file appears only when the write has succeeded: it is written to a hidden temporary
## file in the same folder and renamed over @var{file} at the end, so a failed or
## interrupted write leaves any previous file untouched.
##
## Options:
## @table @asis
## @item "Compression"
## one name for every variable, or a cellstr with one per variable: "snappy" (default),
## "gzip", "brotli", "zstd", "lz4", "lz4_raw", "uncompressed".
## @item "Encoding"
## "dictionary" (default) or "plain", one for all or one per variable.
## @item "Version"
## Parquet format version "1.0" or "2.0" (default "2.0").
## @item "RowGroupHeights"
## the rows of each row group, summing to the table's height.
## @item "MaxRowGroupLength"
## the largest number of rows in one row group.
## @end table
##
## Warnings of the library arrive as Octave warnings with its identifiers, e.g.
## "VANTRO:parquetio:write:RowGroupedListOfDictionaries" when lists of categoricals are
## split into row groups.  Errors carry the library's identifiers
## ("VANTRO:parquetio:write:InvalidOption", "VANTRO:parquetio:write:InvalidWrite", ...).
##
## Examples:
## @example
## @group
## T = struct ("x", [1; 2; NaN], "s", @{@{"a"; []; "c"@}@}, "l", @{@{[1 2]; []; 3@}@});
## pq_write ("t.parquet", T);
## pq_write ("t.parquet", T, "Compression", "zstd", "RowGroupHeights", [2 1]);
## pq_write ("t.parquet", T, "Compression", @{"gzip", "snappy", "zstd"@}, "Version", "1.0");
## isequaln (pq_read ("t.parquet"), T)
## @end group
## @end example
## @seealso{pq_read, pq_info}
## @end deftypefn

function pq_write (file, T, varargin)
  if (nargin < 2)
    print_usage ();
  endif
  opts = pq_options ("pq_write", {"Compression", "Encoding", "Version", "RowGroupHeights", ...
                                  "MaxRowGroupLength"}, varargin);
  __pq_mex__ ("write", file, T, opts);
endfunction

%!function T = roundtrip (dir, T, varargin)
%!  file = fullfile (dir, "rt.parquet");
%!  pq_write (file, T, varargin{:});
%!  T = pq_read (file);
%!endfunction

## Classes and sizes all the way down: isequal alone ignores classes.
%!function s = signature (x)
%!  s = sprintf ("%s%s", class (x), mat2str (size (x)));
%!  if (iscell (x))
%!    s = [s, "{", strjoin(cellfun (@signature, x(:)', "UniformOutput", false), ","), "}"];
%!  elseif (isstruct (x) && isscalar (x))
%!    f = fieldnames (x)';
%!    s = [s, "(", strjoin(cellfun (@(n) [n ":" signature(x.(n))], f, "UniformOutput", false), ","), ")"];
%!  endif
%!endfunction

%!function assert_same (R, T)
%!  assert (isequaln (R, T));
%!  assert (signature (R), signature (T));
%!endfunction

%!shared dir
%! dir = tempname (); mkdir (dir);

## Every value kind comes back equal.
%!test
%! ts = struct ("Type", "datetime", "Ticks", int64 ([0; 1700000000123456; -5]), "Unit", "us",
%!              "TimeZone", "UTC", "Kind", "timestamp", "Missing", [false; false; true]);
%! ts.Ticks(3) = 0;
%! dt = struct ("Type", "datetime", "Ticks", int64 ([0; 19000; 1]), "Unit", "day",
%!              "TimeZone", "", "Kind", "date32", "Missing", [false; false; false]);
%! du = struct ("Type", "duration", "Ticks", int64 ([1; -2; 3]), "Unit", "ns",
%!              "Kind", "duration", "Missing", [false; false; false]);
%! tm = struct ("Type", "duration", "Ticks", int64 ([0; 3600000; 86399999]), "Unit", "ms",
%!              "Kind", "time32", "Missing", [false; false; false]);
%! ca = struct ("Type", "categorical", "Codes", int32 ([1; 0; 1]),
%!              "Categories", {{"lo"; "hi"}}, "Ordered", true, "Missing", [false; false; false]);
%! kv = @(k, v) struct ("Key", {k}, "Value", v);
%! lt = cell (3, 1); lt{1} = {"a"; "b"}; lt{2} = {"c"}; lt{3} = [];
%! T = struct ("d", [1.5; -Inf; NaN], "f", single ([1; 2; 3]), "b", [true; false; true],
%!             "i8", int8 ([-128; 0; 127]), "u8", uint8 ([0; 1; 255]),
%!             "i16", int16 ([-1; 0; 1]), "u16", uint16 ([0; 1; 65535]),
%!             "i32", int32 ([-2^31; 0; 2^31-1]), "u32", uint32 ([0; 1; 2^32-1]),
%!             "i64", intmin ("int64") + int64 ([0; 1; 2]), "u64", intmax ("uint64") - uint64 ([0; 1; 2]),
%!             "s", {{"x"; []; "yz"}}, "bin", {{uint8([1; 2]); []; zeros(0, 1, "uint8")}},
%!             "ls", {{[1; 2]; []; zeros(0, 1)}}, "lt", {lt},
%!             "st", struct ("p", [1; 2; 3], "q", {{"u"; "v"; "w"}}),
%!             "mp", {{kv({"a"; "b"}, [1; 2]); kv({"c"}, 3); []}},
%!             "ts", ts, "dt", dt, "du", du, "tm", tm, "ca", ca);
%! R = roundtrip (dir, T);
%! assert (fieldnames (R), fieldnames (T));
%! for f = fieldnames (T)'
%!   assert_same (R.(f{1}), T.(f{1}));
%! endfor
%! ## Written in two row groups, it reads back the same.
%! R = roundtrip (dir, T, "RowGroupHeights", [1 2]);
%! assert_same (R, T);
%! ## Parquet keeps dictionary indices as int32: narrower codes come back int32.
%! T.ca.Codes = int8 (T.ca.Codes);
%! ## Arrow 11 reads the codes back as int32; newer releases keep the width written.
%! codes = roundtrip (dir, T).ca.Codes;
%! assert (isinteger (codes) && isequal (double (codes), [1; 0; 1]));

## Any text is a variable name; integer columns keep their class without missing values.
%!test
%! T = struct ("a b", [1; 2], "ü", int64 ([2^62; 3]), "", [true; false]);
%! assert_same (roundtrip (dir, T), T);

## Missing integers come back as double with NaN.
%!test
%! f = fullfile (dir, "n.parquet");
%! pq_write (f, struct ("x", int32 ([1; 2])));
%! R = roundtrip (dir, struct ("l", {{int32([1; 2]); []}}));
%! assert (R.l{2}, []);

## Dates as day numbers.
%!test
%! T = struct ("t", struct ("Type", "datetime", "Ticks", int64 ([0; 86400e6 / 2]), "Unit", "us",
%!                          "TimeZone", "", "Kind", "timestamp", "Missing", [false; true]));
%! pq_write (fullfile (dir, "d.parquet"), T);
%! R = pq_read (fullfile (dir, "d.parquet"), "DatesAs", "datenum");
%! assert (R.t, [datenum(1970, 1, 1); NaN]);

## Options reach the file.
%!test
%! T = struct ("a", (1:10)', "b", {cellstr(num2str((1:10)'))});
%! f = fullfile (dir, "o.parquet");
%! pq_write (f, T, "Compression", {"zstd", "gzip"}, "Encoding", "plain", "Version", "1.0",
%!           "RowGroupHeights", [3 3 4]);
%! info = pq_info (f);
%! assert (info.VariableCompression, {"zstd", "gzip"});
%! assert (info.Version, "1.0");
%! assert (info.RowGroupHeights, [3; 3; 4]);
%! pq_write (f, T, "Encoding", {"plain", "dictionary"}, "Compression", "brotli");
%! assert (pq_info (f).VariableCompression, {"brotli", "brotli"});
%! assert (pq_read (f), T);
%! pq_write (f, T, "MaxRowGroupLength", 4, "Compression", "uncompressed");
%! info = pq_info (f);
%! assert (info.RowGroupHeights, [4; 4; 2]);
%! assert (info.VariableCompression, {"uncompressed", "uncompressed"});
%! assert (pq_read (f), T);

## The library's warnings are Octave warnings with their identifiers.
%!test
%! ca = struct ("Type", "categorical", "Codes", uint8 ([0; 1]), "Categories", {{"a"; "b"}},
%!              "Ordered", false, "Missing", [false; false]);
%! T = struct ("l", {{ca; ca}});
%! ## Turned into an error, the warning shows its identifier to catch.
%! warning ("error", "VANTRO:parquetio:write:RowGroupedListOfDictionaries", "local");
%! try
%!   pq_write (fullfile (dir, "w.parquet"), T, "RowGroupHeights", [1 1]);
%!   error ("no warning");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:write:RowGroupedListOfDictionaries");
%! end_try_catch

## A failed write leaves the previous file as it was.
%!test
%! f = fullfile (dir, "keep.parquet");
%! pq_write (f, struct ("x", [1; 2]));
%! before = fileread (f);
%! try
%!   pq_write (f, struct ("x", [3; 4]), "Compression", "zstdd");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:write:InvalidOption");
%! end_try_catch
%! assert (fileread (f), before);
%! assert (isempty (glob (fullfile (fileparts (f), ".*partial*"))));

%!error id=VANTRO:parquetio:write:InvalidOption pq_write (fullfile (dir, "e.parquet"), struct ("x", 1), "Compression", "zstdd")
%!error id=VANTRO:parquetio:write:InvalidOption pq_write (fullfile (dir, "e.parquet"), struct ("x", 1), "Version", "3.0")
%!error id=VANTRO:parquetio:write:WrongOptionNumel pq_write (fullfile (dir, "e.parquet"), struct ("x", 1, "y", 2), "Compression", {"zstd"})
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e.parquet"), struct ("x", [1; 2]), "RowGroupHeights", [1 5])
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e.parquet"), struct ("x", [1; 2]), "RowGroupHeights", [0.5 1.5])
%!error id=VANTRO:parquetio:write:InvalidWrite pq_write (fullfile (dir, "e.parquet"), struct ("x", [1; 2], "y", [1; 2; 3]))
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e.parquet"), [1 2 3])
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e.parquet"), struct ("x", {1, 2}))
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e.parquet"), struct ("x", 1), "MaxRowGroupLength", 0)
%!error id=VANTRO:octave:UnsupportedValue pq_write (fullfile (dir, "e.parquet"), struct ("x", 1i))
%!error id=VANTRO:octave:UnsupportedValue pq_write (fullfile (dir, "e.parquet"), struct ("x", {{@sin}}))
%!error id=VANTRO:octave:UnsupportedValue pq_write (fullfile (dir, "e.parquet"), struct ("x", sparse (1)))
%!error id=VANTRO:octave:InvalidArgument pq_write (3, struct ("x", 1))
%!error <Invalid call> pq_write ("x.parquet")

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
