/* Texts in the library's fixed fields. A name that does not fit is cut; nothing is written past the field. */
%{
static void CopyText(char *field, size_t size, const char *text) {
  size_t length = strlen(text);
  if (length > size - 1) length = size - 1;
  memcpy(field, text, length);
  field[length] = '\0';
}

static char *NewText(size_t size, const char *text) {
  int status = 0;
  char *field = (char *)VORLMalloc(size, 1, &status);
  if (field) CopyText(field, size, text);
  return field;
}
%}

%refuse_none(char *name)
%refuse_none(char *text)
%refuse_none(char **varName)
%newobject vorl_get_varname;

%inline %{
/** Sets the name of a variable.
 *
 * @param varName names, each with room for VORL_VARNAME_LENGTH bytes
 * @param index index of the variable
 * @param name the name; one that does not fit is cut */
void vorl_set_varname(char **varName, int index, char *name) { CopyText(varName[index], VORL_VARNAME_LENGTH, name); }

/** Gives the name of a variable.
 *
 * @param varName names
 * @param index index of the variable
 * @return the name */
char *vorl_get_varname(char **varName, int index) {
  char *copy = (char *)calloc(VORL_VARNAME_LENGTH + 1, 1);
  if (copy) strncpy(copy, varName[index], VORL_VARNAME_LENGTH);
  return copy;
}

/** Sets the varName of an input.
 *
 * @param input the input; the text that the field held is not released
 * @param text the name; one that does not fit is cut */
void vorl_allocate_and_set_kestrumInput_varname(VORL_KESTRUMINPUT *input, char *text) {
  input->varName = NewText(VORL_VARNAME_LENGTH, text);
}

/** Sets the varName of an input.
 *
 * @param input the input; the text that the field held is not released
 * @param text the name; one that does not fit is cut */
void vorl_allocate_and_set_kestrumIndicatorInput_varname(VORL_KESTRUMINDICATORINPUT *input, char *text) {
  input->varName = NewText(VORL_VARNAME_LENGTH, text);
}

/** Sets the outputReportFileName of an input.
 *
 * @param input the input; the text that the field held is not released
 * @param text the name; one that does not fit is cut */
void vorl_allocate_and_set_kestrumInput_outputReportFileName(VORL_KESTRUMINPUT *input, char *text) {
  input->outputReportFileName = NewText(VORL_FILENAME_LENGTH, text);
}

/** Sets the outputReportFileName of an input.
 *
 * @param input the input; the text that the field held is not released
 * @param text the name; one that does not fit is cut */
void vorl_allocate_and_set_kestrumIndicatorInput_outputReportFileName(VORL_KESTRUMINDICATORINPUT *input, char *text) {
  input->outputReportFileName = NewText(VORL_FILENAME_LENGTH, text);
}
%}
