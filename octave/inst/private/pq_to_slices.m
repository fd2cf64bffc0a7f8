## -*- texinfo -*-
## @deftypefn {} {@var{T} =} pq_to_slices (@var{T})
## The text columns of a table (cells of char rows and [] for missing) as one struct of
## slices each (Type "pq:text", Data, Lengths, Missing), which the gateway takes without
## visiting every cell through the MEX interface.  Other columns are left as they are.
## @end deftypefn

function T = pq_to_slices (T)
  if (! (isstruct (T) && isscalar (T)))
    return;
  endif
  for name = fieldnames (T)'
    v = T.(name{1});
    if (! iscell (v) || isempty (v))
      continue;
    endif
    is_text = cellfun ("isclass", v, "char") & cellfun ("size", v, 1) <= 1;
    is_missing = cellfun ("isclass", v, "double") & cellfun ("isempty", v);
    if (! any (is_text(:)) || ! all (is_text(:) | is_missing(:)))
      continue;
    endif
    T.(name{1}) = struct ("Type", "pq:text", "Data", [v{is_text}],
                          "Lengths", cellfun ("length", v(:)),
                          "Missing", is_missing(:));
  endfor
endfunction
