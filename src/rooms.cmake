# The folders of src, from the ground up, and what each may include besides itself and the public headers. A folder may
# only name folders above it in this list; cmake/CheckRooms.cmake holds the sources to it.
set(ROOMS base task pipelining config result handlers inside collect server)
set(base_SEES)
set(task_SEES base)
set(pipelining_SEES base)
set(config_SEES base)
set(result_SEES base task pipelining)
set(handlers_SEES base task result)
set(inside_SEES base)
set(collect_SEES base)
set(server_SEES base result handlers inside collect)
