## -*- texinfo -*-
## @deftypefn  {} {@var{info} =} pq_info (@var{file})
## @deftypefnx {} {@var{info} =} pq_info (@var{source}, @var{name}, @var{value}, @dots{})
## Describe a Parquet file, or a dataset of many, from their footers, without reading any
## column data.
##
## @var{info} is a struct with the fields
## @table @code
## @item Filename
## the file name as the library reports it
## @item FileSize
## size in bytes
## @item NumRowGroups
## number of row groups
## @item RowGroupHeights, RowGroupOffsets
## rows of each row group and the byte offset where it starts (column vectors)
## @item VariableNames
## the top-level variables (1xV cellstr)
## @item VariableTypes
## the Octave-side type of each variable ("double", "string", "datetime", "table", ...;
## empty where the library cannot read the type)
## @item VariableCompression, VariableEncoding
## per variable, from the first row group (empty when the file has no row groups)
## @item Version
## "1.0", "2.0" or empty
## @item ParquetPhysicalTypes, ParquetConvertedTypes, ParquetLogicalTypes, ArrowTypes
## the storage types of each variable
## @item TypeDescriptions
## readable type descriptions such as "List<Struct<a: Int64, b: String>>"
## @end table
##
## A folder, a glob pattern or a cell array of files, folders and patterns is described as
## the dataset that @code{pq_read} reads from it (see there), with the options
## "Partitioning", "PartitionTypes", "Strict" and "SkipBadFiles".  @var{info} then has the
## fields
## @table @code
## @item Files
## the files, in reading order (Fx1 cellstr)
## @item NumRows, NumRowGroups
## the sums over all files
## @item VariableNames, VariableTypes
## the dataset's variables (partition variables last) and the types they are read as
## @item PartitionVariables
## the variables of @code{key=value} folders
## @item FileInfo
## an Fx1 struct array, each element what @code{pq_info} gives for that file alone
## @end table
##
## Errors carry the identifiers that @code{pq_read} gives for the same cause, for example
## "VANTRO:vfs:FileNotFound" for a missing file and "VANTRO:vfs:IsDirectory" for a folder.
##
## Example:
## @example
## @group
## pq_write ("t.parquet", struct ("x", [1; 2; 3], "s", @{@{"a"; "b"; "c"@}@}));
## info = pq_info ("t.parquet");
## info.VariableNames      # @{"x", "s"@}
## info.RowGroupHeights    # 3
## d = pq_info ("data");   # a folder: d.Files, d.NumRows, d.FileInfo(1).NumRowGroups, ...
## @end group
## @end example
## @seealso{pq_read, pq_stats, pq_count}
## @end deftypefn

function info = pq_info (source, varargin)
  if (nargin < 1)
    print_usage ();
  endif
  opts = pq_options ("pq_info", pq_dataset_options (), varargin);
  if (pq_single_file (source) && isempty (fieldnames (opts)))
    info = __pq_mex__ ("info", source);
    return;
  endif
  info = __pq_mex__ ("datasetinfo", source, opts);
  per_file = cellfun (@(file) __pq_mex__ ("info", file), info.Files, "UniformOutput", false);
  info.FileInfo = vertcat (per_file{:});
endfunction

%!shared dir, file
%! dir = tempname (); mkdir (dir);
%! file = fullfile (dir, "t.parquet");
%! pq_write (file, struct ("x", [1; 2; 3], "s", {{"a"; "b"; "c"}}), "RowGroupHeights", [2 1]);

%!test
%! info = pq_info (file);
%! assert (info.NumRowGroups, 2);
%! assert (info.RowGroupHeights, [2; 1]);
%! assert (info.VariableNames, {"x", "s"});
%! assert (info.VariableTypes, {"double", "string"});
%! assert (info.FileSize, double (stat (file).size));
%! assert (numel (info.RowGroupOffsets), 2);
%! assert (info.TypeDescriptions, {"Float64", "String"});
%! assert (numel (info.VariableCompression), 2);
%! assert (ischar (info.Version));
%! for f = {"ParquetPhysicalTypes", "ParquetConvertedTypes", "ParquetLogicalTypes", "ArrowTypes"}
%!   assert (numel (info.(f{1})), 2);
%! endfor

## Every function of the package documents itself with examples.
%!test
%! for f = {"pq_info", "pq_count", "pq_read", "pq_reader", "pq_dataset", "pq_stats", "pq_write"}
%!   [text, format] = get_help_text (f{1});
%!   assert (format, "texinfo");
%!   assert (! isempty (strfind (text, "@example")), [f{1} " has no example"]);
%! endfor

## The same causes fail with the same identifiers as in pq_read.
%!error id=VANTRO:vfs:FileNotFound pq_info (fullfile (dir, "missing.parquet"))
## Every example of every help text runs as printed, in a folder holding the files that the
## examples name (each function's examples in a fresh copy).
%!function examples = help_examples (name)
%!  text = get_help_text (name);
%!  blocks = regexp (text, '@example\s*\n(.*?)@end example', "tokens");
%!  examples = cellfun (@(b) b{1}, blocks, "UniformOutput", false);
%!  examples = regexprep (examples, '@(end )?group\s*\n', "");
%!  examples = regexprep (examples, '@([{}@])', "$1");
%!endfunction

## In a function of its own, so that an example's variables stay out of the test's.
%!function run_example (code)
%!  evalc (code);
%!endfunction

%!function make_example_files (folder)
%!  when = struct ("Type", "datetime", "Ticks", int64 ((0:5)' * 86400), "Unit", "s",
%!                 "TimeZone", "", "Kind", "timestamp", "Missing", false (6, 1));
%!  T = struct ("x", (1:6)', "s", {{"a"; "b"; "c"; "d"; "e"; "f"}}, "when", when);
%!  pq_write (fullfile (folder, "t.parquet"), T, "RowGroupHeights", [3 3]);
%!  pq_write (fullfile (folder, "big.parquet"), struct ("x", (1:1000)'), "MaxRowGroupLength", 100);
%!  pq_write (fullfile (folder, "a.parquet"), struct ("x", (1:3)'));
%!  pq_write (fullfile (folder, "b.parquet"), struct ("x", (1:3)'), "RowGroupHeights", [1 2]);
%!  mkdir (fullfile (folder, "data"));
%!  pq_write (fullfile (folder, "data", "part-1.parquet"), struct ("x", (1:3)'));
%!endfunction

%!test
%! here = pwd ();
%! confirm_recursive_rmdir (false, "local");
%! for f = {"pq_info", "pq_count", "pq_read", "pq_reader", "pq_dataset", "pq_stats", "pq_write"}
%!   examples = help_examples (f{1});
%!   assert (! isempty (examples), [f{1} " has no example"]);
%!   folder = tempname (); mkdir (folder);
%!   unwind_protect
%!     make_example_files (folder);
%!     cd (folder);
%!     for e = examples
%!       try
%!         run_example (e{1});
%!       catch err
%!         error ("help %s: the example\n%s\nfails: %s", f{1}, e{1}, err.message);
%!       end_try_catch
%!     endfor
%!   unwind_protect_cleanup
%!     cd (here);
%!     rmdir (folder, "s");
%!   end_unwind_protect
%! endfor

## A folder, a pattern or a list: the dataset's summary and each file's own.
%!test
%! d = tempname ();
%! mkdir (fullfile (d, "year=2023"));
%! mkdir (fullfile (d, "year=2024"));
%! unwind_protect
%!   a = fullfile (d, "year=2023", "a.parquet");
%!   b = fullfile (d, "year=2024", "b.parquet");
%!   pq_write (a, struct ("id", int32 ([1; 2; 3])), "RowGroupHeights", [1 2]);
%!   pq_write (b, struct ("id", int64 ([4; 5]), "s", {{"p"; "q"}}));
%!   info = pq_info (d);
%!   assert (info.Files, {a; b});
%!   assert ([info.NumRows, info.NumRowGroups], [5 3]);
%!   assert (info.VariableNames, {"id", "s", "year"});
%!   assert (info.VariableTypes, {"int64", "string", "int64"});
%!   assert (info.PartitionVariables, {"year"});
%!   assert (size (info.FileInfo), [2 1]);
%!   assert (info.FileInfo(1), pq_info (a));
%!   assert (info.FileInfo(2).VariableTypes, {"int64", "string"});
%!   assert (pq_info (fullfile (d, "*", "*.parquet")).Files, {a; b});
%!   assert (pq_info (d, "Partitioning", "none").VariableNames, {"id", "s"});
%!   single = pq_info ({b});
%!   assert ([single.NumRows, numel(single.FileInfo)], [2 1]);
%!   ## Options of datasets describe one file as a dataset of one file.
%!   assert (pq_info (b, "Strict", true).Files, {b});
%!   try
%!     pq_info (d, "Strict", true);
%!     error ("differing files passed as equal");
%!   catch err
%!     assert (err.identifier, "VANTRO:parquetio:dataset:SchemaMismatch");
%!   end_try_catch
%! unwind_protect_cleanup
%!   confirm_recursive_rmdir (false, "local");
%!   rmdir (d, "s");
%! end_unwind_protect
%!error id=VANTRO:parquetio:dataset:NoMatch pq_info (fullfile (tempdir (), "no-such-*.parquet"))
%!error id=VANTRO:octave:InvalidArgument pq_info (tempdir (), "Variables", "x")
%!error <Invalid call> pq_info ()
%!error id=VANTRO:octave:InvalidArgument pq_info (3)

%!test
%! ## Not Parquet: the library's identifier reaches err.identifier.
%! bad = fullfile (dir, "bad.parquet");
%! fid = fopen (bad, "w"); fwrite (fid, "not parquet at all"); fclose (fid);
%! try
%!   pq_info (bad);
%!   error ("no error");
%! catch err
%!   assert (! isempty (err.message));
%!   ## The file is named once, not once per layer that saw the failure.
%!   assert (numel (strfind (err.message, "bad.parquet")), 1, err.message);
%!   try
%!     pq_read (bad);
%!   catch err2
%!     assert (err.identifier, err2.identifier);
%!   end_try_catch
%! end_try_catch

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
