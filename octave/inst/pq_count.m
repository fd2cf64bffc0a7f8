## -*- texinfo -*-
## @deftypefn  {} {@var{n} =} pq_count (@var{files})
## Count the row groups of many Parquet files, reading only their footers.
##
## @var{files} is a cell array of file names, one file name, a folder or a glob pattern such
## as @code{"data/part-*.parquet"}.  A folder and a pattern take the files that
## @code{pq_read} reads as a dataset from them (see there: every file below a folder, names
## starting with @code{_} or @code{.} passed over, @code{**} for any number of folder levels),
## sorted by name.  A pattern that matches no file fails with
## "VANTRO:parquetio:dataset:NoMatch", a folder without files with
## "VANTRO:parquetio:dataset:EmptyFolder"; a file among them that is not Parquet fails the
## count as it does when named on its own.  The files are read in parallel; @var{n} is a
## column of doubles in input order.
##
## Ctrl-C stops the count between files; the call then fails with identifier
## "VANTRO:host:Interrupted".  A file that cannot be read fails the whole call with the
## library's identifier ("VANTRO:parquetio:read:InternalInvalidRead", ...).
##
## Examples:
## @example
## @group
## n = pq_count (@{"a.parquet", "b.parquet"@});
## n = pq_count ("data");                 # every *.parquet in the folder
## n = pq_count ("data/part-*.parquet");  # a glob pattern
## @end group
## @end example
## @seealso{pq_info, pq_read}
## @end deftypefn

function n = pq_count (files)
  if (nargin != 1)
    print_usage ();
  endif
  if (ischar (files) && isrow (files))
    if (pq_single_file (files))
      files = {files};
    else
      files = __pq_mex__ ("listfiles", files);
    endif
  elseif (! iscellstr (files))
    error ("VANTRO:octave:InvalidArgument",
           "pq_count: FILES must be a cell array of file names, a folder or a pattern");
  endif
  n = __pq_mex__ ("count", files(:)');
endfunction

%!shared dir, files
%! dir = tempname (); mkdir (dir);
%! files = {fullfile(dir, "b.parquet"), fullfile(dir, "a.parquet"), fullfile(dir, "c.parquet")};
%! pq_write (files{1}, struct ("x", (1:6)'), "RowGroupHeights", [1 2 3]);
%! pq_write (files{2}, struct ("x", (1:6)'), "RowGroupHeights", [3 3]);
%! pq_write (files{3}, struct ("x", (1:6)'));

%!assert (pq_count (files), [3; 2; 1])
%!assert (pq_count (files(2)), 2)
%!assert (pq_count (files{1}), 3)
%!assert (pq_count ({}), zeros (0, 1))
## A folder and a pattern are sorted by name.
%!assert (pq_count (dir), [2; 3; 1])
%!assert (pq_count (fullfile (dir, "[ab].parquet")), [2; 3])
## Below a folder at any depth, without writers' markers; "**" reaches every level.
%!test
%! sub = fullfile (dir, "sub", "deeper");
%! mkdir (fullfile (dir, "sub")); mkdir (sub);
%! unwind_protect
%!   pq_write (fullfile (sub, "d.parquet"), struct ("x", (1:4)'), "RowGroupHeights", [1 1 2]);
%!   fclose (fopen (fullfile (dir, "_SUCCESS"), "w"));
%!   fclose (fopen (fullfile (sub, ".d.parquet.crc"), "w"));
%!   assert (pq_count (dir), [2; 3; 1; 3]);
%!   assert (pq_count (fullfile (dir, "**", "*.parquet")), [2; 3; 1; 3]);
%!   assert (pq_count (fullfile (dir, "sub")), 3);
%! unwind_protect_cleanup
%!   confirm_recursive_rmdir (false, "local");
%!   rmdir (fullfile (dir, "sub"), "s");
%!   delete (fullfile (dir, "_SUCCESS"));
%! end_unwind_protect
%!test
%! ## A file found that is not Parquet fails the count, naming it.
%! notes = fullfile (dir, "notes.txt");
%! fid = fopen (notes, "w"); fputs (fid, "not parquet"); fclose (fid);
%! try
%!   pq_count (dir);
%!   message = "";
%! catch err
%!   message = err.message;
%!   identifier = err.identifier;
%! end_try_catch
%! delete (notes);
%! assert (identifier, "VANTRO:parquetio:read:InternalInvalidRead");
%! assert (! isempty (strfind (message, "notes.txt")), message);
%!test
%! empty = fullfile (dir, "empty");
%! mkdir (empty);
%! try
%!   pq_count (empty);
%!   identifier = "";
%! catch err
%!   identifier = err.identifier;
%! end_try_catch
%! rmdir (empty);
%! assert (identifier, "VANTRO:parquetio:dataset:EmptyFolder");
%!test
%! many = repmat (files, 1, 40);
%! assert (pq_count (many), repmat ([3; 2; 1], 40, 1));

%!error id=VANTRO:vfs:FileNotFound pq_count ({files{1}, fullfile(dir, "none.parquet")})
## A pattern that matches nothing is a mistake, not an empty set of files.
%!error <No file matches the pattern> pq_count (fullfile (dir, "none-*.parquet"))
%!error id=VANTRO:parquetio:dataset:NoMatch pq_count (fullfile (dir, "none-*.parquet"))
%!error id=VANTRO:vfs:IsDirectory pq_count ({dir})
%!error id=VANTRO:octave:InvalidArgument pq_count (42)
%!error id=VANTRO:octave:InvalidArgument pq_count ({1, 2})
%!error <Invalid call> pq_count ()

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
