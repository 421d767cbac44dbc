! [embedding]
program example
    use kalvos
    use, intrinsic :: iso_c_binding, only: c_double
    implicit none
    type(kalvos_evaluator) :: k
    real(c_double) :: x
    if (k%init() /= KALVOS_OK) error stop
    if (k%set_num("a", 5.0_c_double) /= KALVOS_OK) error stop
    if (k%compute("2 * max(a, 3) + 1", x) == KALVOS_OK) print '(f0.1)', x
    if (k%compute("1 / (a - 5)", x, " in line 4") /= KALVOS_OK) print '(a)', k%message()
    call k%destroy()
end program example
! [embedding-end]
