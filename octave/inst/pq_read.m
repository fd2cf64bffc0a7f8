## -*- texinfo -*-
## @deftypefn  {} {@var{T} =} pq_read (@var{file})
## @deftypefnx {} {@var{T} =} pq_read (@var{source})
## @deftypefnx {} {@var{T} =} pq_read (@dots{}, @var{name}, @var{value}, @dots{})
## @deftypefnx {} {[@var{T}, @var{rowgroups}] =} pq_read (@dots{})
## Read a Parquet file, some of its row groups or the row groups in a byte range; or read
## many files as one table (a dataset).
##
## @var{source} is a folder, a glob pattern or a cell array of files, folders and patterns:
## see "Datasets" below.  One name that is a file (or has no wildcard) is read as one file.
##
## @var{T} is a 1x1 struct with one field per variable (any text is a field name), each an Rx1
## column:
## @itemize
## @item numeric and logical columns keep their class (int8 @dots{} uint64, single, double,
## logical); a missing value makes the column double with NaN (64-bit integers only when
## every value is exactly a double, otherwise the read fails with
## "VANTRO:parquetio:read:InternalInvalidRead" naming the column, row and value);
## @item text is an Rx1 cell of char rows (UTF-8); a missing text is @code{[]};
## @item binary values are uint8 column vectors in a cell; missing is @code{[]};
## @item timestamps, dates, times and durations are a struct
## @code{Type, Ticks, Unit, TimeZone, Kind, Missing} (@code{Ticks} an Rx1 int64 count of
## @code{Unit} since 1970-01-01, or since midnight for times; @code{Missing} Rx1 logical); with
## @code{"DatesAs", "datenum"} they are doubles instead: datenum day numbers for dates and
## timestamps, days for times and durations, NaN where missing;
## @item dictionary (categorical) columns are a struct
## @code{Type, Codes, Categories, Ordered, Missing} with 0-based @code{Codes} into the cellstr
## @code{Categories};
## @item lists are cell columns, structs nested 1x1 structs of columns, maps cells of structs
## with the fields @code{Key} and @code{Value}.
## @end itemize
##
## Options:
## @table @asis
## @item "Variables"
## cellstr (or one name): read only these variables, in this order.  An unknown name fails
## with "VANTRO:octave:UnknownVariable".
## @item "RowGroups"
## row-group numbers (whole numbers from 1 to the file's count), read in the order given.
## @item "ByteRange"
## @code{[offset size]} in bytes (offset from 0, size at least 1): the row groups whose first
## byte lies in the range, so that adjacent ranges split a file between independent readers.
## @item "Where"
## a row filter, e.g. @code{"x > 5 & s == ""abc"""} (see @code{pq_reader} for the syntax).
## Row groups whose statistics rule out a match are not read; the rows read are filtered
## exactly.
## @item "DatesAs"
## @code{"ticks"} (default) or @code{"datenum"}.
## @end table
## Option names and their text values match in any case.  A wrong option or value fails with
## "VANTRO:octave:InvalidArgument".
## "RowGroups" and "ByteRange" exclude each other.  The second output lists the row groups
## that were read.
##
## Datasets: a folder is read with every file below it, at any depth; a pattern takes the
## files it matches (@code{*}, @code{?} and @code{[...]} within one name, @code{**} for any
## number of folder levels; a pattern that matches a folder takes the folder's files).  Names
## starting with @code{_} or @code{.} (@file{_SUCCESS}, @file{.crc} files, unfinished writes)
## are passed over.  A pattern without files fails with
## "VANTRO:parquetio:dataset:NoMatch", a folder without files with
## "VANTRO:parquetio:dataset:EmptyFolder".
##
## Row order: the sources in the order given, the files of each sorted by name (a file reached
## twice is read once), the row groups of each file in ascending order.
##
## The table has every variable of any file, in the order first met, then the partition
## variables: @code{key=value} folders between a folder named (or the part of a pattern before
## its first wildcard) and the files, the same keys in every file.  A file without a variable
## holds missing values there (an integer variable then reads as double with NaN, as any
## integer column with missing values does).  A variable whose type differs between files
## takes the type that holds every file's values exactly: narrower integers to wider ones of
## the same signedness; single to double; an integer of at most 32 bits with single or double
## to double; timestamps of one time zone to the finest unit; categorical text and text to
## text; lists by their elements.  Any other difference (int64 and double, signed and unsigned, structs that
## differ, ...) fails with "VANTRO:parquetio:dataset:SchemaConflict" naming the variable, both
## files and both types.  Partition values are integer (int64), double, date, timestamp or
## otherwise text, whichever holds all of them.
##
## "Variables", "Where" and "DatesAs" apply to datasets as to one file (an unknown variable
## fails with "VANTRO:parquetio:dataset:UnknownVariable").  "Where" leaves out the files
## whose partition values rule out a match and the row groups whose statistics do, then
## filters the rows exactly.  Options of datasets only (given with one file, they read it as a
## dataset of one file):
## @table @asis
## @item "Partitioning"
## @code{"hive"} (default: @code{key=value} folders are variables) or @code{"none"}.
## @item "PartitionTypes"
## the types of partition variables, a struct (@code{struct ("year", "int64")}) or an Nx2
## cell of names and types, each @code{"int64"}, @code{"double"}, @code{"date"},
## @code{"timestamp"} or @code{"string"}; variables not named get theirs from their values.
## @item "Strict"
## true: every file must have the same variables in the same order with the same types
## ("VANTRO:parquetio:dataset:SchemaMismatch" otherwise).
## @item "SkipBadFiles"
## true: a file found in a folder or by a pattern that is not Parquet, cannot be read or is a
## dangling link is left out with the warning "VANTRO:parquetio:dataset:SkippedFile" instead
## of failing the read ("VANTRO:parquetio:dataset:NotParquet", ...).  Files named on their own
## always fail as they do when read alone.
## @end table
## "RowGroups" and "ByteRange" apply to one file only and are refused for a dataset
## (use @code{pq_dataset} to read one piece at a time).  The second output of a dataset read
## is an Nx2 @code{[file rowgroup]} list of the row groups read, both counted from 1.
##
## Examples:
## @example
## @group
## T = pq_read ("t.parquet");
## T = pq_read ("t.parquet", "Variables", @{"x", "s"@}, "RowGroups", [2 1]);
## [T, rg] = pq_read ("t.parquet", "ByteRange", [0 1e6]);
## T = pq_read ("t.parquet", "Where", "x >= 2 & ~(s == 'b')");
## T = pq_read ("t.parquet", "DatesAs", "datenum");   datestr (T.when(1))
## T = pq_read ("data");                   # every file below data/
## T = pq_read ("data/part-*.parquet", "Where", "x > 1");
## T = pq_read (@{"a.parquet", "b.parquet"@}, "Variables", "x");
## @end group
## @end example
##
## A dataset in Hive folders, its partition variable typed as text:
## @example
## @group
## mkdir ("sales/region=north");  mkdir ("sales/region=south");
## pq_write ("sales/region=north/1.parquet", struct ("amount", [10; 20]));
## pq_write ("sales/region=south/1.parquet", struct ("amount", int32 (5)));
## T = pq_read ("sales", "Where", "region == 'south'");   # T.amount is 5
## T = pq_read ("sales", "PartitionTypes", struct ("region", "string"));
## @end group
## @end example
## @seealso{pq_reader, pq_dataset, pq_info, pq_write, pq_stats}
## @end deftypefn

function [T, rowgroups] = pq_read (source, varargin)
  if (nargin < 1)
    print_usage ();
  endif
  dataset_options = pq_dataset_options ();
  opts = pq_options ("pq_read", [{"Variables", "RowGroups", "ByteRange", "Where", "DatesAs"}, ...
                                 dataset_options], varargin);
  if (pq_single_file (source) && ! any (isfield (opts, dataset_options)))
    [T, rowgroups] = __pq_mex__ ("read", source, opts);
    return;
  endif
  for name = {"RowGroups", "ByteRange"}
    if (isfield (opts, name{1}))
      error ("VANTRO:octave:InvalidArgument",
             "pq_read: %s applies to one file, not to a dataset (pq_dataset reads a dataset piece by piece)",
             name{1});
    endif
  endfor
  [T, rowgroups] = __pq_mex__ ("readdataset", source, opts);
endfunction

%!shared dir, file, T0
%! dir = tempname (); mkdir (dir);
%! file = fullfile (dir, "t.parquet");
%! T0 = struct ("x", (1:6)', "s", {{"a"; "b"; "c"; "d"; "e"; "f"}}, "k", int32 ([6:-1:1]'));
%! pq_write (file, T0, "RowGroupHeights", [2 2 2]);

%!test
%! [T, rg] = pq_read (file);
%! assert (T, T0);
%! assert (rg, [1; 2; 3]);
%!test
%! T = pq_read (file, "Variables", {"k", "x"});
%! assert (fieldnames (T), {"k"; "x"});
%! assert (T.k, T0.k);
%!assert (pq_read (file, "variables", "s").s, T0.s)
%!test
%! [T, rg] = pq_read (file, "RowGroups", [3 1]);
%! assert (T.x, [5; 6; 1; 2]);
%! assert (rg, [3; 1]);
%!test
%! info = pq_info (file);
%! [T, rg] = pq_read (file, "ByteRange", [info.RowGroupOffsets(2), 1]);
%! assert (rg, 2);
%! assert (T.x, [3; 4]);
%! [T, rg] = pq_read (file, "ByteRange", [0 info.FileSize]);
%! assert (rg, [1; 2; 3]);
%! [T, rg] = pq_read (file, "ByteRange", [info.FileSize 10]);
%! assert (rg, zeros (0, 1));
%! assert (fieldnames (T), {"x"; "s"; "k"});
%!test
%! ## Text keeps every code point; a missing text is [].
%! f = fullfile (dir, "u.parquet");
%! pq_write (f, struct ("s", {{"żółw"; []; ""; "a\0b"; "\xF0\x9F\x98\x80"}}));
%! T = pq_read (f);
%! assert (T.s, {"żółw"; []; ""; "a\0b"; "\xF0\x9F\x98\x80"});
%! ## ASCII runs are taken several bytes at a time: the first other character may stand
%! ## anywhere in a run, or end it.
%! s = {"abcdefgh"; "abcdefghż"; "abcdż"; "abcdefg\xF0\x9F\x98\x80xyz"; "żabcdefghijk";
%!      "abcdefghijklmnopü"; "abc"; "0123456789abcdef"};
%! pq_write (f, struct ("s", {s}));
%! assert (pq_read (f).s, s);

## Where: row groups ruled out by their statistics are not read; rows are filtered exactly.
%!test
%! ## Long columns are made in parts on several threads: every row, at every part boundary,
%! ## keeps its own text, multi-byte and astral characters, empty texts and missing ones.
%! n = 200003;
%! s = strsplit (sprintf ("r%dż\n", 1:n), "\n")(1:n)';
%! s(1:7:end) = {""};
%! s(3:11:end) = {[]};
%! s(100000:100004) = {"\xF0\x9F\x98\x80", [], "", "ü", "z"};
%! x = (1:n)' / 3;
%! f = fullfile (dir, "long.parquet");
%! pq_write (f, struct ("s", {s}, "x", x, "i", int16 (mod (1:n, 700))', "b", mod (1:n, 3)' == 0));
%! T = pq_read (f);
%! ## (assert on the whole cell takes minutes at this length)
%! assert (cellfun ("isclass", T.s, "char"), cellfun ("isclass", s, "char"));
%! assert (cellfun ("size", T.s, 1), cellfun ("size", s, 1));
%! assert (cellfun ("size", T.s, 2), cellfun ("size", s, 2));
%! assert (all (strcmp (T.s, s) | cellfun ("isempty", s)));
%! assert (T.x, x);
%! assert (T.i, int16 (mod (1:n, 700))');
%! assert (T.b, mod (1:n, 3)' == 0);
%!test
%! ## Texts read together share storage; changing one leaves the others as they were.
%! f = fullfile (dir, "cow.parquet");
%! pq_write (f, struct ("s", {{"abc"; "def"; "ghi"}}));
%! T = pq_read (f);
%! u = T.s{2};
%! T.s{1}(1) = "X";
%! u(end) = "Y";
%! assert (T.s, {"Xbc"; "def"; "ghi"});
%! assert (u, "deY");
%! v = T.s{3};
%! clear T;
%! assert (v, "ghi");
%!test
%! [T, rg] = pq_read (file, "Where", "x > 4");
%! assert (rg, 3);
%! assert (T.x, [5; 6]);
%! [T, rg] = pq_read (file, "Where", "x >= 2 & ~(s == 'c') | k == 1", "Variables", {"s"});
%! assert (rg, [1; 2; 3]);
%! assert (T, struct ("s", {{"b"; "d"; "e"; "f"}}));
%! [T, rg] = pq_read (file, "Where", "s in ('a', \"f\") and x between 1 and 5");
%! assert (T.x, 1);
%! assert (rg, [1; 3]);
%! [T, rg] = pq_read (file, "Where", "x > 100", "RowGroups", [2 1]);
%! assert (rg, zeros (0, 1));
%! assert (numel (T.x), 0);
%! assert (class (T.k), "int32");
%! T = pq_read (file, "Where", "x is not null && k < 3", "RowGroups", [3 1]);
%! assert (T.x, [5; 6]);
%!error id=VANTRO:filter:InvalidExpression pq_read (file, "Where", "x >")
%!error id=VANTRO:filter:UnknownVariable pq_read (file, "Where", "y > 1")
%!error id=VANTRO:filter:TypeMismatch pq_read (file, "Where", "s > 1")
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "Where", 3)
## Nesting that would exhaust the stack is refused; ordinary nesting is read.
%!error id=VANTRO:filter:InvalidExpression pq_read (file, "Where", [repmat("(", 1, 50000) "x > 0" repmat(")", 1, 50000)])
%!error id=VANTRO:filter:InvalidExpression pq_read (file, "Where", [repmat("~", 1, 50000) "x > 0"])
%!assert (pq_read (file, "Where", [repmat("(", 1, 200) "x != 1" repmat(")", 1, 200)]).x, (2:6)')
%!assert (pq_read (file, "Where", "not not x ~= 2 and s <> 'c'").x, [1; 4; 5; 6])

%!error id=VANTRO:octave:UnknownVariable pq_read (file, "Variables", {"x", "nope"})
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", 1, "ByteRange", [0 1])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [0 1 2])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "Colour", 1)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "Variables")
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "DatesAs", "julian")
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", "1")
## Row groups are whole numbers from 1 to the file's count; a byte range starts at a
## finite offset from 0 and spans at least one byte. Messages count from 1.
%!error <RowGroups: 4 is not a row group \(the file has row groups 1 to 3\)> pq_read (file, "RowGroups", 4)
%!error <RowGroups: 0 is not a row group> pq_read (file, "RowGroups", 0)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", 4)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", 0)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", -1)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", 1.5)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", [1 2.7])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", NaN)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", Inf)
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "RowGroups", 1+i)
%!error <ByteRange: the offset must be a finite number of bytes from 0, not -1> pq_read (file, "ByteRange", [-1 10])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [-1 10])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [NaN 5])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [Inf 5])
%!error <ByteRange: the size must be a finite number of bytes above 0, not -10> pq_read (file, "ByteRange", [0 -10])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [4 0])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [0 Inf])
%!error id=VANTRO:octave:InvalidArgument pq_read (file, "ByteRange", [0 NaN])
%!test
%! ## Whole numbers of other classes are row-group numbers too; an empty list reads nothing.
%! assert (pq_read (file, "RowGroups", int8 (2)).x, [3; 4]);
%! [T, rg] = pq_read (file, "RowGroups", []);
%! assert (rg, zeros (0, 1));
%! assert (numel (T.x), 0);
%! ## Option values match in any case, as option names do.
%! assert (pq_read (file, "datesas", "TICKS"), T0);
%!error <DatesAs must be "ticks" or "datenum", not "julian"> pq_read (file, "DatesAs", "julian")
## A missing file fails as in every other function of the package (a folder is a dataset).
%!error <Its variables: 'x', 's', 'k'> pq_read (file, "Variables", {"x", "nope"})
%!error id=VANTRO:vfs:FileNotFound pq_read (fullfile (dir, "none.parquet"))
%!error <Invalid call> pq_read ()

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");

## Columns of a megabyte and more become Octave's arrays without a copy: each read's arrays are
## its own, survive edits, clears and later reads, and keep their class and values.
%!test
%! d = tempname (); mkdir (d);
%! unwind_protect
%!   n = 300000;
%!   W = struct ("d", (1:n)' / 7, "i", int64 ((1:n)') * 3, "k", int32 ((n:-1:1)'),
%!               "f", single ((1:n)'), "u", uint8 (mod ((1:n)', 256)));
%!   f = fullfile (d, "wide.parquet");
%!   pq_write (f, W, "RowGroupHeights", [n]);
%!   A = pq_read (f);
%!   B = pq_read (f);
%!   assert (A, W);
%!   A.d(1) = -1; A.i(end) = 0;
%!   assert (B, W);
%!   clear B;
%!   C = pq_read (f, "RowGroups", 1);
%!   assert (C, W);
%!   assert (A.d(1), -1);
%!   assert (A.i(end), int64 (0));
%!   clear A;
%!   for k = 1:3
%!     assert (pq_read (f, "Variables", {"i", "k"}), struct ("i", W.i, "k", W.k));
%!   endfor
%!   copyfile (f, fullfile (d, "wide2.parquet"));
%!   D = pq_read (d);
%!   assert (D.d, [W.d; W.d]);
%!   assert (C, W);
%! unwind_protect_cleanup
%!   confirm_recursive_rmdir (false, "local");
%!   rmdir (d, "s");
%! end_unwind_protect

## Datasets: folders, patterns and lists read as one table.  Each test makes its own folder:
## year=2023 holds id as int32 and no "note", year=2024 id as int64 and a "note"; a writer's
## _SUCCESS marker and a .crc file lie beside them.
%!function d = make_dataset ()
%!  d = tempname ();
%!  mkdir (fullfile (d, "year=2023"));
%!  mkdir (fullfile (d, "year=2024"));
%!  pq_write (fullfile (d, "year=2023", "part-0.parquet"),
%!            struct ("id", int32 ([1; 2; 3]), "x", [0.5; 1.5; NaN]), "RowGroupHeights", [2 1]);
%!  pq_write (fullfile (d, "year=2024", "part-0.parquet"),
%!            struct ("id", int64 ([4; 5]), "x", [2.5; 3.5], "note", {{"a"; []}}));
%!  fclose (fopen (fullfile (d, "_SUCCESS"), "w"));
%!  fid = fopen (fullfile (d, "year=2024", ".part-0.parquet.crc"), "w");
%!  fputs (fid, "crc"); fclose (fid);
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
%! ## Variables by name in the order first met, promoted (int32 and int64: int64), the
%! ## partition variable last; files by name, row groups ascending.
%! d = make_dataset ();
%! unwind_protect
%!   [T, rg] = pq_read (d);
%!   assert (fieldnames (T), {"id"; "x"; "note"; "year"});
%!   assert (T.id, int64 ((1:5)'));
%!   assert (T.x, [0.5; 1.5; NaN; 2.5; 3.5]);
%!   assert (T.note, {[]; []; []; "a"; []});
%!   assert (T.year, int64 ([2023; 2023; 2023; 2024; 2024]));
%!   assert (rg, [1 1; 1 2; 2 1]);
%!   ## The same files by patterns, "**" across levels; the partitions count from the part
%!   ## before the first wildcard.
%!   assert (pq_read (fullfile (d, "*", "*.parquet")), T);
%!   assert (pq_read (fullfile (d, "**", "part-?.parquet")), T);
%!   assert (pq_read (fullfile (d, "year=202[34]")).id, int64 ((1:5)'));
%!   ## A list: each source in its order, a file reached twice read once.  Files named on
%!   ## their own have no partition folders, nor have the files of a folder named below them.
%!   later = fullfile (d, "year=2024", "part-0.parquet");
%!   assert (pq_read ({d, later}), T);
%!   assert (error_of (@() pq_read ({later, d})),
%!           "VANTRO:parquetio:dataset:InconsistentPartitions");
%!   T2 = pq_read ({fullfile(d, "year=2024"), fullfile(d, "year=2023")});
%!   assert (fieldnames (T2), {"id"; "x"; "note"});
%!   assert (T2.id, int64 ([4; 5; 1; 2; 3]));
%!   T3 = pq_read ({later, fullfile(d, "year=2023", "part-0.parquet")}, "Variables", {"x", "id"});
%!   assert (T3, struct ("x", [2.5; 3.5; 0.5; 1.5; NaN], "id", int64 ([4; 5; 1; 2; 3])));
%!   assert (fieldnames (pq_read ({later})), {"id"; "x"; "note"});
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Where: files ruled out by their partition values and row groups by their statistics
%! ## are not read; the rows of the others are filtered exactly.
%! d = make_dataset ();
%! unwind_protect
%!   [T, rg] = pq_read (d, "Variables", "id", "Where", "year == 2024 & id != 5");
%!   assert (T, struct ("id", int64 (4)));
%!   assert (rg, [2 1]);
%!   [T, rg] = pq_read (d, "Where", "id > 2", "Variables", {"year", "id"});
%!   assert (rg, [1 2; 2 1]);
%!   assert (T.id, int64 ([3; 4; 5]));
%!   assert (T.year, int64 ([2023; 2024; 2024]));
%!   ## A variable that a file lacks is missing in all its rows.
%!   [T, rg] = pq_read (d, "Where", "note == 'a'");
%!   assert (rg, [2 1]);
%!   assert (T.id, int64 (4));
%!   assert (pq_read (d, "Where", "note is null").id, int64 ([1; 2; 3; 5]));
%!   ## Nothing left: a table without rows, of the dataset's types.
%!   [T, rg] = pq_read (d, "Where", "year < 2000");
%!   assert (size (rg), [0 2]);
%!   assert (fieldnames (T), {"id"; "x"; "note"; "year"});
%!   assert (class (T.id), "int64");
%!   assert (numel (T.id), 0);
%!   assert (error_of (@() pq_read (d, "Where", "nope > 1")), "VANTRO:filter:UnknownVariable");
%!   assert (error_of (@() pq_read (d, "Where", "year == 'x'")), "VANTRO:filter:TypeMismatch");
%!   assert (error_of (@() pq_read (d, "Variables", {"id", "nope"})),
%!           "VANTRO:parquetio:dataset:UnknownVariable");
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Partitioning off, and partition types given by a struct or by a cell of pairs.
%! d = make_dataset ();
%! unwind_protect
%!   assert (fieldnames (pq_read (d, "Partitioning", "NONE")), {"id"; "x"; "note"});
%!   T = pq_read (d, "PartitionTypes", struct ("year", "string"), "Variables", "year");
%!   assert (T.year, {"2023"; "2023"; "2023"; "2024"; "2024"});
%!   T = pq_read (d, "partitiontypes", {"year", "Double"}, "Where", "year > 2023.5");
%!   assert (T.year, [2024; 2024]);
%!   assert (error_of (@() pq_read (d, "PartitionTypes", {"year", "decimal"})),
%!           "VANTRO:parquetio:dataset:InvalidOption");
%!   assert (error_of (@() pq_read (d, "PartitionTypes", struct ("yr", "int64"))),
%!           "VANTRO:parquetio:dataset:InvalidOption");
%!   assert (error_of (@() pq_read (d, "PartitionTypes", struct ("year", "date"))),
%!           "VANTRO:parquetio:dataset:InvalidPartitionValue");
%!   assert (error_of (@() pq_read (d, "PartitionTypes", {"year"})),
%!           "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_read (d, "Partitioning", "none", "PartitionTypes", {"year", "int64"})),
%!           "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_read (d, "Partitioning", "directory")),
%!           "VANTRO:octave:InvalidArgument");
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Schemas: Strict wants equal schemas; types without a common one are refused.
%! d = make_dataset ();
%! unwind_protect
%!   assert (error_of (@() pq_read (d, "Strict", true)), "VANTRO:parquetio:dataset:SchemaMismatch");
%!   assert (error_of (@() pq_read (d, "Strict", "yes")), "VANTRO:octave:InvalidArgument");
%!   same = fullfile (d, "year=2023", "part-1.parquet");
%!   pq_write (same, struct ("id", int32 (9), "x", 9));
%!   assert (pq_read (fullfile (d, "year=2023"), "Strict", 1).id, int32 ([1; 2; 3; 9]));
%!   pq_write (fullfile (d, "year=2024", "part-1.parquet"), struct ("x", int64 (7)));
%!   try
%!     pq_read (d);
%!     error ("int64 and double were united");
%!   catch err
%!     assert (err.identifier, "VANTRO:parquetio:dataset:SchemaConflict");
%!     assert (! isempty (strfind (err.message, "part-1.parquet")), err.message);
%!   end_try_catch
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Promotions across files: an integer of at most 32 bits with double is double; an
%! ## integer variable that a file lacks reads as double with NaN there.
%! d = tempname ();
%! mkdir (d);
%! unwind_protect
%!   pq_write (fullfile (d, "1.parquet"), struct ("k", int16 ([1; 2]), "v", int32 ([7; 8])));
%!   pq_write (fullfile (d, "2.parquet"), struct ("v", [0.5; 9]));
%!   T = pq_read (d);
%!   assert (T, struct ("k", [1; 2; NaN; NaN], "v", [7; 8; 0.5; 9]));
%!   assert (pq_info (d).VariableTypes, {"int16", "double"});
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Partition folders must name the same keys everywhere, and no file may hold a variable
%! ## of a partition's name.
%! d = make_dataset ();
%! unwind_protect
%!   mkdir (fullfile (d, "month=1"));
%!   pq_write (fullfile (d, "month=1", "part-0.parquet"), struct ("id", int64 (6)));
%!   assert (error_of (@() pq_read (d)), "VANTRO:parquetio:dataset:InconsistentPartitions");
%!   assert (pq_read (d, "Partitioning", "none").id, int64 ([6; 1; 2; 3; 4; 5]));
%!   e = fullfile (d, "clash", "id=1");
%!   mkdir (e);
%!   pq_write (fullfile (e, "x.parquet"), struct ("id", 1));
%!   assert (error_of (@() pq_read (fullfile (d, "clash"))),
%!           "VANTRO:parquetio:dataset:PartitionVariableClash");
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## A file that is not Parquet in a folder is refused, or skipped with a warning; so is a
%! ## dangling link.  A file named on its own fails as it does when read alone.
%! d = make_dataset ();
%! unwind_protect
%!   notes = fullfile (d, "year=2024", "notes.txt");
%!   fid = fopen (notes, "w"); fputs (fid, "not parquet at all"); fclose (fid);
%!   assert (error_of (@() pq_read (d)), "VANTRO:parquetio:dataset:NotParquet");
%!   warning ("off", "VANTRO:parquetio:dataset:SkippedFile", "local");
%!   lastwarn ("");
%!   T = pq_read (d, "SkipBadFiles", true);
%!   assert (T.id, int64 ((1:5)'));
%!   assert (error_of (@() pq_read ({notes}, "SkipBadFiles", true)),
%!           "VANTRO:parquetio:read:InternalInvalidRead");
%!   delete (notes);
%!   symlink (fullfile (d, "gone.parquet"), fullfile (d, "year=2024", "link.parquet"));
%!   assert (error_of (@() pq_read (d)), "VANTRO:parquetio:dataset:DanglingLink");
%!   assert (pq_read (d, "SkipBadFiles", true).id, int64 ((1:5)'));
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect
%!test
%! ## A file that cannot be opened for reading (root opens every file: nothing to see then).
%! d = make_dataset ();
%! unwind_protect
%!   locked = fullfile (d, "year=2024", "part-0.parquet");
%!   system (sprintf ("chmod 000 '%s'", locked));
%!   fid = fopen (locked, "r");
%!   if (fid >= 0)
%!     fclose (fid);
%!   else
%!     assert (error_of (@() pq_read (d)), "VANTRO:parquetio:dataset:UnreadableFile");
%!     warning ("off", "VANTRO:parquetio:dataset:SkippedFile", "local");
%!     assert (pq_read (d, "SkipBadFiles", true).id, int32 ([1; 2; 3]));
%!   endif
%! unwind_protect_cleanup
%!   system (sprintf ("chmod 644 '%s'", locked));
%!   remove_dataset (d);
%! end_unwind_protect
%!warning id=VANTRO:parquetio:dataset:SkippedFile
%! d = make_dataset ();
%! fid = fopen (fullfile (d, "notes.txt"), "w"); fputs (fid, "text"); fclose (fid);
%! unwind_protect
%!   pq_read (d, "SkipBadFiles", true);
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## A pattern without files and a folder without files are mistakes, not empty tables.
%! d = tempname ();
%! mkdir (d);
%! unwind_protect
%!   assert (error_of (@() pq_read (fullfile (d, "*.parquet"))), "VANTRO:parquetio:dataset:NoMatch");
%!   fclose (fopen (fullfile (d, "_SUCCESS"), "w"));
%!   assert (error_of (@() pq_read (d)), "VANTRO:parquetio:dataset:EmptyFolder");
%!   assert (error_of (@() pq_read ({})), "VANTRO:octave:InvalidArgument");
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect

%!test
%! ## Options of one file are refused for a dataset; options of a dataset read one file as a
%! ## dataset of one file.  Seconds and DatesAs as for one file.
%! d = make_dataset ();
%! unwind_protect
%!   assert (error_of (@() pq_read (d, "RowGroups", 1)), "VANTRO:octave:InvalidArgument");
%!   assert (error_of (@() pq_read ({fullfile(d, "year=2023", "part-0.parquet")}, "ByteRange", [0 1])),
%!           "VANTRO:octave:InvalidArgument");
%!   f = fullfile (d, "year=2023", "part-0.parquet");
%!   assert (pq_read (f, "Strict", true), pq_read (f));
%!   when = struct ("Type", "datetime", "Ticks", int64 ([0; 86400]), "Unit", "s",
%!                  "TimeZone", "", "Kind", "timestamp", "Missing", false (2, 1));
%!   t = fullfile (d, "t");
%!   mkdir (t);
%!   pq_write (fullfile (t, "1.parquet"), struct ("when", when));
%!   pq_write (fullfile (t, "2.parquet"), struct ("when", when));
%!   T = pq_read (t);
%!   assert (T.when.Unit, "s");
%!   assert (T.when.Ticks, int64 ([0; 86400; 0; 86400]));
%!   assert (pq_read (t, "DatesAs", "datenum").when, datenum (1970, 1, [1; 2; 1; 2]));
%! unwind_protect_cleanup
%!   remove_dataset (d);
%! end_unwind_protect
%!error <RowGroups applies to one file, not to a dataset> pq_read (tempdir (), "RowGroups", 1)
