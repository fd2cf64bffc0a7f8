## -*- texinfo -*-
## @deftypefn  {} {@var{n} =} pq_count (@var{files})
## Count the row groups of many Parquet files, reading only their footers.
##
## @var{files} is a cell array of file names, one file name, a folder (every
## @file{*.parquet} file in it, sorted by name) or a glob pattern such as
## @code{"data/part-*.parquet"}; a pattern that matches no file fails with
## "VANTRO:vfs:FileNotFound".  The files are read in parallel; @var{n} is a column of
## doubles in input order.
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
    if (isfolder (files))
      folder = files;
      found = dir (fullfile (folder, "*.parquet"));
      names = sort ({found(! [found.isdir]).name});
      files = cellfun (@(name) fullfile (folder, name), names, "UniformOutput", false);
    elseif (any (ismember (files, "*?[")))
      pattern = files;
      files = sort (glob (pattern))';
      if (isempty (files))
        error ("VANTRO:vfs:FileNotFound", "pq_count: no file matches the pattern '%s'",
               pattern);
      endif
    else
      files = {files};
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
%!test
%! empty = fullfile (dir, "empty");
%! mkdir (empty);
%! assert (pq_count (empty), zeros (0, 1));
%!test
%! many = repmat (files, 1, 40);
%! assert (pq_count (many), repmat ([3; 2; 1], 40, 1));

%!error id=VANTRO:vfs:FileNotFound pq_count ({files{1}, fullfile(dir, "none.parquet")})
## A pattern that matches nothing is a mistake, not an empty set of files.
%!error <no file matches the pattern> pq_count (fullfile (dir, "none-*.parquet"))
%!error id=VANTRO:vfs:FileNotFound pq_count (fullfile (dir, "none-*.parquet"))
%!error id=VANTRO:vfs:IsDirectory pq_count ({dir})
%!error id=VANTRO:octave:InvalidArgument pq_count (42)
%!error id=VANTRO:octave:InvalidArgument pq_count ({1, 2})
%!error <Invalid call> pq_count ()

%!test
%! confirm_recursive_rmdir (false, "local");
%! rmdir (dir, "s");
