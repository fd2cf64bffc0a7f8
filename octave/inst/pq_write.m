## -*- texinfo -*-
## @deftypefn  {} {} pq_write (@var{file}, @var{T})
## @deftypefnx {} {} pq_write (@var{file}, @var{T}, @var{name}, @var{value}, @dots{})
## @deftypefnx {} {} pq_write (@var{folder}, @var{T}, "PartitionBy", @var{names}, @dots{})
## @deftypefnx {} {@var{files} =} pq_write (@dots{})
## Write a table to a Parquet file, or to a folder of partitioned Parquet files.
##
## @var{T} is a 1x1 struct with one field per variable, each a column of the same height, in
## the shapes that @code{pq_read} returns (see @code{help pq_read}): numeric and logical
## columns, cellstr text (@code{[]} for a missing text), cells of uint8 vectors (binary),
## cells of columns (lists), nested 1x1 structs (structs), cells of @code{Key}/@code{Value}
## structs (maps), and the @code{Type}-tagged structs of datetimes, durations and
## categoricals.  NaN in a double or single column is written as a missing value.
##
## Row vectors: a 1xN numeric, logical or cell vector, wherever it stands (a variable, a list
## element, a field of a Type-tagged struct), is taken as the Nx1 column it holds and reads
## back as that column; a char row is one text.
##
## Reading the file back gives an equal struct (@code{isequaln}), of the same classes and
## sizes, except where Parquet or Octave cannot keep the value as given:
## @itemize
## @item row vectors come back as columns (see above);
## @item a missing value reads as NaN in a double column, so a NaN written as a value comes
## back as NaN but is stored as a missing value (a column with missing values reads as double,
## see @code{help pq_read});
## @item Parquet has no unit of seconds: timestamps and times in seconds (@code{Unit "s"})
## are stored in milliseconds and come back in seconds at the top level of the table (from the
## Arrow schema stored in the file); nested in a list or struct they come back in milliseconds
## (@code{Ticks} times 1000, the same instants);
## @item the @code{Ticks} under missing rows (@code{Missing} true) come back as 0, whatever
## they held;
## @item categorical @code{Codes} of another integer class come back as int32 (Parquet keeps
## dictionary indices that way; builds on newer Arrow keep the class written);
## @item an empty list element written as a 0x0 @code{[]} is a missing list; written as
## @code{zeros (0, 1)} it is an empty list and comes back as such.
## @end itemize
##
## The file appears only when the write has succeeded: it is written to a hidden temporary
## file in the same folder and renamed over @var{file} at the end, so a failed or
## interrupted write leaves any previous file untouched.  Ctrl-C raises the error
## @code{VANTRO:host:Interrupted}; when it comes as the rename is under way, the file is
## already the new one.
##
## Options:
## @table @asis
## @item "Compression"
## one name for every variable, or a cellstr with one per variable: "snappy" (default),
## "gzip", "brotli", "zstd", "lz4", "uncompressed" (in any case).
## @item "Encoding"
## "dictionary" (default) or "plain", one for all or one per variable (in any case).
## @item "Version"
## Parquet format version "1.0" or "2.0" (default "2.0").
## @item "RowGroupHeights"
## the rows of each row group, summing to the table's height.
## @item "MaxRowGroupLength"
## the largest number of rows in one row group.
## @end table
##
## @strong{Folders.}  Any of the options below writes @var{folder} (made when missing) instead of
## one file: the rows go into Hive partition folders, one level per partition variable
## (@file{year=2024/month=Jan/}), values URL-escaped (@file{a%2Fb} for "a/b") and missing values
## as @file{__HIVE_DEFAULT_PARTITION__}; the files hold the other variables.  Partitions come in
## the order their first row appears and rows keep their order.  Each file is named
## @file{part-<16 random hex digits>-<n>.parquet}, so writers working at the same time never
## pick one name, and appears whole or not at all; a write that fails removes what it wrote.
## @var{files} lists the files written (for one file: @var{file}).
## @table @asis
## @item "PartitionBy"
## the partition variables, outermost first (text or a cellstr; @code{@{@}} for none).  Their
## values must have an exact folder text: integers, double or single holding whole numbers
## (up to 2^53), logicals, text, and dates (a @code{Type} "datetime" of @code{Kind} "date32").
## Other values are refused with "VANTRO:parquetio:dataset:InvalidPartitionVariable" or
## "VANTRO:parquetio:dataset:UnwritablePartitionValue" (1.5, NaN, ...), before anything is
## written.
## @item "MaxRowsPerFile"
## at most this many rows in one file (default 0: no limit).
## @item "ExistingFiles"
## what to do with files already in @var{folder}: "error" (default: refuse with
## "VANTRO:parquetio:dataset:TargetNotEmpty" when it holds any visible file), "add" (write
## beside them) or "replace" (once every new file is written, remove the old Parquet files of
## the partition folders written; other partitions and other files stay).  Old Parquet files in
## folders of another partitioning are refused with
## "VANTRO:parquetio:dataset:ExistingLayoutMismatch".
## @end table
## Read back as a dataset, partition variables come last, typed by their folder names:
## integers and whole numbers as int64, dates as dates, logicals as the text "true"/"false",
## text as text (as numbers where every value looks like one, unless the reader is told its
## types).  "RowGroupHeights" belongs to one file and is refused with folder options;
## "Compression" and "Encoding" given per variable name the table's variables, partition
## variables included.
##
## Warnings of the library arrive as Octave warnings with its identifiers, e.g.
## "VANTRO:parquetio:write:RowGroupedListOfDictionaries" when lists of categoricals are
## split into row groups.  Errors carry the library's identifiers
## ("VANTRO:parquetio:write:InvalidOption", "VANTRO:parquetio:write:InvalidWrite", ...);
## an option's error names the option as given here ("Compression", not the library's
## property name).
##
## Examples:
## @example
## @group
## T = struct ("x", [1; 2; NaN], "s", @{@{"a"; []; "c"@}@}, "l", @{@{[1; 2]; []; 3@}@});
## pq_write ("t.parquet", T);
## pq_write ("t.parquet", T, "Compression", "zstd", "RowGroupHeights", [2 1]);
## pq_write ("t.parquet", T, "Compression", @{"gzip", "snappy", "zstd"@}, "Version", "1.0");
## isequaln (pq_read ("t.parquet"), T)     # true
## S = struct ("year", [2023; 2024; 2024], "x", [1; 2; 3]);
## files = pq_write ("sales", S, "PartitionBy", "year")
##   # @result{} @{"sales/year=2023/part-....parquet"; "sales/year=2024/part-....parquet"@}
## @end group
## @end example
## @seealso{pq_read, pq_info}
## @end deftypefn

function files = pq_write (file, T, varargin)
  if (nargin < 2)
    print_usage ();
  endif
  opts = pq_options ("pq_write", {"Compression", "Encoding", "Version", "RowGroupHeights", ...
                                  "MaxRowGroupLength", "PartitionBy", "MaxRowsPerFile", ...
                                  "ExistingFiles"}, varargin);
  if (nargout > 0)
    files = __pq_mex__ ("write", file, T, opts);
  else
    __pq_mex__ ("write", file, T, opts);
  endif
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

## Row vectors of every class are columns; a char row is one text.
%!test
%! T = struct ("d", [1 2 3], "b", [true false true], "i", int16 ([4 5 6]), "c", {{"a", [], "c"}},
%!             "l", {{[1 2], [], 3}});
%! R = roundtrip (dir, T);
%! assert_same (R.d, [1; 2; 3]);
%! assert_same (R.b, [true; false; true]);
%! assert_same (R.i, int16 ([4; 5; 6]));
%! assert_same (R.c, {"a"; []; "c"});
%! assert_same (R.l, {[1; 2]; []; 3});
%! R = roundtrip (dir, struct ("s", "one text", "n", 7));
%! assert_same (R.s, {"one text"});
%! R = roundtrip (dir, struct ("ts", struct ("Type", "datetime", "Ticks", int64 ([1 2]), "Unit", "ms",
%!                                     "TimeZone", "", "Kind", "timestamp", "Missing", [false true])));
%! assert_same (R.ts.Ticks, int64 ([1; 0]));
%! assert_same (R.ts.Missing, [false; true]);

## What the help text says does not come back as given, comes back exactly as it says.
%!test
%! ts = struct ("Type", "datetime", "Ticks", int64 ([5; 7]), "Unit", "s",
%!              "TimeZone", "", "Kind", "timestamp", "Missing", [false; true]);
%! tm = struct ("Type", "duration", "Ticks", int64 ([0; 86399]), "Unit", "s",
%!              "Kind", "time32", "Missing", [false; false]);
%! R = roundtrip (dir, struct ("ts", ts, "tm", tm, "l", {{[]; zeros(0, 1)}}));
%! assert (R.ts.Unit, "s");
%! assert_same (R.ts.Ticks, int64 ([5; 0]));
%! assert_same (R.tm, tm);
%! assert_same (R.l, {[]; zeros(0, 1)});
%! ## Also when read in parts, filtered, or as statistics.
%! f = fullfile (dir, "s.parquet");
%! pq_write (f, struct ("ts", ts, "x", [1; 2]), "RowGroupHeights", [1 1]);
%! assert (pq_read (f, "Where", "x == 1").ts.Unit, "s");
%! r = pq_reader (f);
%! assert (read (r).ts.Ticks, int64 (5));
%! S = pq_stats (f, "Variables", "ts");
%! assert (S.Max{1}.Unit, "s");
%! assert (S.Max{1}.Ticks(1), int64 (5));
%! ## Nested, the seconds stay milliseconds.
%! R = roundtrip (dir, struct ("st", struct ("ts", ts)));
%! assert (R.st.ts.Unit, "ms");
%! assert_same (R.st.ts.Ticks, int64 ([5000; 0]));

## Option values in any case; errors name the option as the user gave it.
%!test
%! f = fullfile (dir, "c.parquet");
%! pq_write (f, struct ("x", [1; 2], "y", [3; 4]), "Compression", {"ZSTD", "Gzip"},
%!           "Encoding", "PLAIN");
%! assert (pq_info (f).VariableCompression, {"zstd", "gzip"});
%!test
%! ## Only char rows make a text column, whichever quotes made them: a char matrix of two rows
%! ## in a cell makes it a list column instead.
%! f = fullfile (dir, "rows.parquet");
%! pq_write (f, struct ("s", {{"ab"; 'cd'; ''; []}}));
%! assert (pq_read (f).s, {"ab"; "cd"; ""; []});
%! pq_write (f, struct ("s", {{"ab"; ["cd"; "ef"]}}));
%! assert (pq_read (f).s, {{"ab"}; {"cd"; "ef"}});
%!error <Invalid value for option 'Compression': 'zstdd'> pq_write (fullfile (dir, "e.parquet"), struct ("x", 1), "Compression", "zstdd")
%!error <Invalid value for option 'Encoding': 'rle'> pq_write (fullfile (dir, "e.parquet"), struct ("x", 1), "Encoding", "rle")
%!error <Option 'Compression' must have 2 elements> pq_write (fullfile (dir, "e.parquet"), struct ("x", 1, "y", 2), "Compression", {"zstd"})
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

## Partitioned folders: one folder level per partition variable, rows in order, the partition
## variables left out of the files.
%!test
%! out = fullfile (dir, "sales");
%! T = struct ("year", [2024; 2023; 2024; NaN], "month", {{"Jan"; "a/b"; "Jan"; "Mar"}},
%!             "x", [1; 2; 3; 4], "ok", [true; false; true; true]);
%! files = pq_write (out, T, "PartitionBy", {"year", "month"});
%! assert (files, {fullfile(out, "year=2024", "month=Jan", files{1}(end-34:end));
%!                 fullfile(out, "year=2023", "month=a%2Fb", files{2}(end-34:end));
%!                 fullfile(out, "year=__HIVE_DEFAULT_PARTITION__", "month=Mar", files{3}(end-34:end))});
%! assert (regexp (files{1}, 'part-[0-9a-f]{16}-00000\.parquet$', "once"));
%! R = pq_read (files{1});
%! assert (fieldnames (R), {"x"; "ok"});
%! assert (R.x, [1; 3]);
%! assert (R.ok, [true; true]);
%! assert (pq_read (files{2}).x, 2);
%! assert (pq_read (files{3}).x, 4);
%! ## Logical partition variables, and files of at most two rows.
%! files = pq_write (fullfile (dir, "flags"), T, "PartitionBy", "ok", "MaxRowsPerFile", 2);
%! assert (numel (files), 3);
%! assert (cellfun (@(f) numel (pq_read (f).x), files), [2; 1; 1]);
%! assert (strncmp (files, fullfile (dir, "flags", "ok=true", "part-"), numel (fullfile (dir, "flags", "ok=true", "part-"))), [true; true; false]);
%! ## Writer options reach each file; per-variable ones name the table's variables.
%! files = pq_write (fullfile (dir, "opts"), T, "PartitionBy", "month",
%!                   "Compression", {"snappy", "snappy", "zstd", "gzip"}, "Version", "1.0");
%! info = pq_info (files{1});
%! assert (info.VariableCompression, {"snappy", "zstd", "gzip"});
%! assert (info.Version, "1.0");

## Files already in the folder: refused, added beside, or replaced partition by partition.
%!test
%! out = fullfile (dir, "existing");
%! T = struct ("g", {{"a"; "b"}}, "x", [1; 2]);
%! old = pq_write (out, T, "PartitionBy", "g");
%! try
%!   pq_write (out, T, "PartitionBy", "g");
%!   error ("not refused");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:dataset:TargetNotEmpty");
%! end_try_catch
%! added = pq_write (out, T, "PartitionBy", "g", "ExistingFiles", "add");
%! assert (all (cellfun (@(f) exist (f, "file") == 2, [old; added])));
%! fid = fopen (fullfile (out, "g=a", "notes.txt"), "w"); fclose (fid);
%! new = pq_write (out, struct ("g", {{"a"}}, "x", 9), "PartitionBy", "g", "ExistingFiles", "Replace");
%! assert (exist (old{1}, "file"), 0);
%! assert (exist (added{1}, "file"), 0);
%! assert (exist (old{2}, "file"), 2);
%! assert (exist (added{2}, "file"), 2);
%! assert (exist (fullfile (out, "g=a", "notes.txt"), "file"), 2);
%! assert (pq_read (new{1}).x, 9);

## Refused partition requests write nothing.
%!test
%! out = fullfile (dir, "refused");
%! T = struct ("x", [1.5; 2], "y", [1; 2]);
%! try
%!   pq_write (out, T, "PartitionBy", "x");
%!   error ("not refused");
%! catch err
%!   assert (err.identifier, "VANTRO:parquetio:dataset:UnwritablePartitionValue");
%! end_try_catch
%! assert (exist (out), 0);
%!error id=VANTRO:parquetio:dataset:UnknownVariable pq_write (fullfile (dir, "e"), struct ("x", 1), "PartitionBy", "nope")
%!error id=VANTRO:parquetio:dataset:AllVariablesPartitioned pq_write (fullfile (dir, "e"), struct ("x", 1), "PartitionBy", "x")
%!error id=VANTRO:parquetio:dataset:InvalidPartitionVariable pq_write (fullfile (dir, "e"), struct ("l", {{[1; 2]}}, "x", 1), "PartitionBy", "l")
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e"), struct ("x", 1, "y", 2), "PartitionBy", "x", "ExistingFiles", "keep")
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e"), struct ("x", 1, "y", 2), "PartitionBy", "x", "MaxRowsPerFile", -1)
%!error id=VANTRO:octave:InvalidArgument pq_write (fullfile (dir, "e"), struct ("x", [1; 2], "y", [1; 2]), "PartitionBy", "x", "RowGroupHeights", [1 1])
%!error id=VANTRO:parquetio:dataset:TargetNotFolder pq_write (fullfile (dir, "keep.parquet"), struct ("x", 1, "y", 2), "PartitionBy", "x")

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
