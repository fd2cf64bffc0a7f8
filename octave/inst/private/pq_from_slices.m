## -*- texinfo -*-
## @deftypefn {} {@var{T} =} pq_from_slices (@var{T})
## The text columns that the gateway returns as slices (struct with Type "pq:text") as Rx1
## cellstr, a missing text as [] and an empty one as "" (0x0), as the package shows text.
## @end deftypefn

function T = pq_from_slices (T)
  for name = fieldnames (T)'
    v = T.(name{1});
    if (! (isstruct (v) && isfield (v, "Type") && strcmp (v.Type, "pq:text")))
      continue;
    endif
    texts = cellslices (v.Data, v.Starts', v.Ends', 2)';
    texts(v.Ends < v.Starts) = {""};
    texts(v.Missing) = {[]};
    T.(name{1}) = reshape (texts, numel (v.Missing), 1);
  endfor
endfunction
