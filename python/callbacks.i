/* The progress callbacks. These five exist twice in the module: as functions, and as function pointers whose names end
 * in _ptr. The pointers are what a caller passes where a function asks for a callback. */
%callback("%s_ptr") VORLUpdateProgressMonitor0;
%callback("%s_ptr") VORLUpdateProgressMonitor1;
%callback("%s_ptr") VORLUpdateProgressMonitor2;
%callback("%s_ptr") VORLUpdateProgressMonitor3;
%callback("%s_ptr") VORLUpdateProgressMonitor4;
