## -*- texinfo -*-
## @deftypefn {} {@var{names} =} pq_dataset_options ()
## The options that only a dataset takes (files, folders and patterns read as one table).
## @end deftypefn

function names = pq_dataset_options ()
  names = {"Partitioning", "PartitionTypes", "Strict", "SkipBadFiles"};
endfunction
