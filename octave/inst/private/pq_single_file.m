## -*- texinfo -*-
## @deftypefn {} {@var{tf} =} pq_single_file (@var{source})
## Whether @var{source} is read as one Parquet file (the row-group reader's path) rather than
## as a dataset: one name that is not a folder and that is a file, an IRI or a name without
## wildcards.  A name that exists is never a pattern, and a missing name without wildcards
## stays a file so that it fails as a missing file.  Anything but text and a cell array goes
## the single-file way too, where the gateway refuses it.
## @end deftypefn

function tf = pq_single_file (source)
  if (iscell (source))
    tf = false;
  elseif (! ischar (source) || ! isrow (source))
    tf = true;
  elseif (! isempty (regexp (source, '^[A-Za-z][A-Za-z0-9+.-]*://', "once")))
    tf = true;
  elseif (isfolder (source))
    tf = false;
  else
    tf = isfile (source) || ! any (ismember (source, "*?["));
  endif
endfunction
