## -*- texinfo -*-
## @deftypefn {} {@var{opts} =} pq_options (@var{caller}, @var{allowed}, @var{args})
## Name-value pairs as a struct whose fields are the allowed names (spelled as listed; names
## match case-insensitively).  Unknown names and a missing value are errors with identifier
## "VANTRO:octave:InvalidArgument".
## @end deftypefn

function opts = pq_options (caller, allowed, args)
  opts = struct ();
  if (mod (numel (args), 2) != 0)
    error ("VANTRO:octave:InvalidArgument",
           "%s: options come in name-value pairs", caller);
  endif
  for i = 1:2:numel (args)
    name = args{i};
    if (! ischar (name) || ! isrow (name))
      error ("VANTRO:octave:InvalidArgument", "%s: an option name must be text", caller);
    endif
    match = find (strcmpi (name, allowed));
    if (isempty (match))
      error ("VANTRO:octave:InvalidArgument", "%s: unknown option '%s' (options: %s)",
             caller, name, strjoin (allowed, ", "));
    endif
    opts.(allowed{match}) = args{i+1};
  endfor
endfunction
