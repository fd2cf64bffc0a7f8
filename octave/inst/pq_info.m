## -*- texinfo -*-
## @deftypefn {} {@var{info} =} pq_info (@var{file})
## Describe a Parquet file from its footer, without reading any column data.
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
## Errors carry the library's identifiers, for example
## "VANTRO:parquetio:read:InternalInvalidRead" for a file that is not Parquet.
##
## Example:
## @example
## @group
## pq_write ("t.parquet", struct ("x", [1; 2; 3], "s", @{@{"a"; "b"; "c"@}@}));
## info = pq_info ("t.parquet");
## info.VariableNames      # @{"x", "s"@}
## info.RowGroupHeights    # 3
## @end group
## @end example
## @seealso{pq_read, pq_stats, pq_count}
## @end deftypefn

function info = pq_info (file)
  if (nargin != 1)
    print_usage ();
  endif
  info = __pq_mex__ ("info", file);
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
%! for f = {"pq_info", "pq_count", "pq_read", "pq_reader", "pq_stats", "pq_write"}
%!   [text, format] = get_help_text (f{1});
%!   assert (format, "texinfo");
%!   assert (! isempty (strfind (text, "@example")), [f{1} " has no example"]);
%! endfor

%!error id=VANTRO:parquetio:read:InternalInvalidRead pq_info (fullfile (dir, "missing.parquet"))
%!error id=VANTRO:parquetio:read:InternalInvalidRead pq_info (mfilename ("fullpath"))
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
%!   assert (err.identifier, "VANTRO:parquetio:read:InternalInvalidRead");
%!   assert (! isempty (err.message));
%! end_try_catch

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
