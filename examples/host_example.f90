! A minimal finite-element host: asks each model for its number of state
! variables and its matrix attributes at element 1, point 1, exactly as a
! host program calls User_Mod before an analysis.
program host_example
  implicit none
  integer :: IDTask, iModel, IsUndr, iStep, iTer, iEl, Int
  integer :: iPlast, nStat, NonSym, StrsDep, TimeDep, Tangent
  integer :: iArg8, iArg9, iArg10, iArg12, iArg29, iArg30, iArg31
  double precision :: Time0, Pw0, BulkW, Pw
  double precision :: Props(50), Sig0(6), StVar0(62), dEps(6), D(6,6), Sig(6), StVar(62)
  external user_mod

  Props = 0d0; Sig0 = 0d0; StVar0 = 0d0; dEps = 0d0; D = 0d0; Sig = 0d0; StVar = 0d0
  Time0 = 0d0; Pw0 = 0d0; BulkW = 0d0; Pw = 0d0
  IsUndr = 0; iStep = 0; iTer = 0; iEl = 1; Int = 1; iPlast = 0
  nStat = 0; NonSym = -1; StrsDep = -1; TimeDep = -1; Tangent = -1
  iArg8 = 0; iArg9 = 0; iArg10 = 0; iArg12 = 0; iArg29 = 0; iArg30 = 0; iArg31 = 0

  do iModel = 1, 4
    write(*,*) 'Model', iModel
    flush(6)
    IDTask = 4
    call user_mod(IDTask, iModel, IsUndr, iStep, iTer, iEl, Int, iArg8, iArg9, iArg10, &
                  Time0, iArg12, Props, Sig0, Pw0, StVar0, dEps, D, BulkW, Sig, Pw, StVar, &
                  iPlast, nStat, NonSym, StrsDep, TimeDep, Tangent, iArg29, iArg30, iArg31)
    IDTask = 5
    call user_mod(IDTask, iModel, IsUndr, iStep, iTer, iEl, Int, iArg8, iArg9, iArg10, &
                  Time0, iArg12, Props, Sig0, Pw0, StVar0, dEps, D, BulkW, Sig, Pw, StVar, &
                  iPlast, nStat, NonSym, StrsDep, TimeDep, Tangent, iArg29, iArg30, iArg31)
  end do
end program host_example
